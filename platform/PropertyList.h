#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Clock.h"
#include "platform/Result.h"

// The one tree of values that preferences, events and JSON documents share, so that none is ever converted into
// another.
namespace platform {

class Value;

// Keys in the order in which they were first set; a key stands once. Made for few members: what looks for a key reads
// them all.
class Dictionary {
 public:
  using Members = std::vector<std::pair<std::string, Value>>;

  Dictionary();
  // As if they were set one after the other, for any number of them.
  explicit Dictionary(Members members);
  Dictionary(std::initializer_list<std::pair<std::string, Value>> members);

  // Owned by the dictionary, valid until it changes; null when absent.
  [[nodiscard]] const Value* Find(std::string_view key) const;
  // Replaces in place, or appends.
  void Set(std::string key, Value value);
  void Remove(std::string_view key);

  // Its own ones, to be moved from.
  [[nodiscard]] Members TakeMembers() &&;

  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] bool empty() const { return size() == 0; }
  [[nodiscard]] const std::pair<std::string, Value>* begin() const;
  [[nodiscard]] const std::pair<std::string, Value>* end() const;

  friend bool operator==(const Dictionary& left, const Dictionary& right);

 private:
  Members members_;
};

using Array = std::vector<Value>;
struct Data {
  std::string bytes;
  bool operator==(const Data&) const = default;
};
struct Uid {
  std::uint64_t number = 0;
  bool operator==(const Uid&) const = default;
};
struct Null {
  bool operator==(const Null&) const = default;
};

// An integer is a std::int64_t wherever it fits, else a std::uint64_t. A date is a Time wherever that reaches (the
// years 1678 to 2261), else whole seconds: "the distant future" of many preferences lies beyond.
class Value {
 public:
  using State = std::variant<Null, bool, std::int64_t, std::uint64_t, double, std::string, Time,
                             std::chrono::sys_seconds, Data, Uid, Array, Dictionary>;

  Value() = default;
  Value(State state) : state_(std::move(state)) {}
  // A template, since g++ takes std::int64_t{0} for a null pointer.
  template <std::convertible_to<std::string_view> Text>
  Value(Text text) : state_(std::string(std::move(text))) {}

  // Null when it is of another kind.
  template <typename T>
  [[nodiscard]] const T* As() const {
    return std::get_if<T>(&state_);
  }
  [[nodiscard]] const State& state() const { return state_; }
  [[nodiscard]] State& state() { return state_; }
  [[nodiscard]] bool IsNull() const { return As<Null>() != nullptr; }

  friend bool operator==(const Value& left, const Value& right) { return left.state_ == right.state_; }

 private:
  State state_;
};

// XML or binary, from untrusted bytes: EFBIG over 4 MiB, EINVAL for what does not parse, nests deeper than 128 levels,
// or unfolds into more than 4 MiB or 8,192 keys and values.
[[nodiscard]] Result<Value> ParsePropertyList(std::string_view bytes);

// XML, format version 1.0, in whole seconds where there are dates. EINVAL for a tree that holds a null and for one that
// ParsePropertyList would refuse, EFBIG over 4 MiB. Control characters that XML cannot hold are dropped from texts,
// bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] Result<std::string> WritePropertyList(const Value& value);

}  // namespace platform
