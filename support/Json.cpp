#include "support/Json.h"

#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/src.hpp>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "support/Text.h"

namespace json {

namespace {

using boost::json::error;
using boost::json::error_code;
using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::size_t parsedLevels = 512;
constexpr std::size_t writtenLevels = 1000;
// What a hostile document can make us hold, and, since a dictionary looks its keys up one by one, compare.
constexpr std::size_t keptValues = 4'000'000;
constexpr std::size_t membersOfAKeptObject = 256;

// Receives the parser's events and builds the members kept. What the parser expects of it is in snake case.
class Builder {
 public:
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;

  explicit Builder(std::initializer_list<std::string_view> keep) : keep_(keep) {}

  [[nodiscard]] Dictionary TakeDocument() { return std::get<Dictionary>(std::move(open_.front().value)); }

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }

  bool on_array_begin(error_code& code) { return Begin(Array(), code); }
  bool on_array_end(std::size_t, error_code& code) { return End(code); }
  bool on_object_begin(error_code& code) { return Begin(Dictionary(), code); }
  bool on_object_end(std::size_t, error_code& code) { return End(code); }

  bool on_key_part(std::string_view part, std::size_t, error_code&) {
    if (IsKeyOfInterest()) text_ += part;
    return true;
  }
  bool on_key(std::string_view part, std::size_t size, error_code& code) {
    on_key_part(part, size, code);
    if (level_ == 1) building_ = std::find(keep_.begin(), keep_.end(), text_) != keep_.end();
    if (building_) open_.back().key.swap(text_);
    text_.clear();
    return true;
  }

  bool on_string_part(std::string_view part, std::size_t, error_code&) {
    if (building_) text_ += part;
    return true;
  }
  bool on_string(std::string_view part, std::size_t size, error_code& code) {
    on_string_part(part, size, code);
    return Add(std::exchange(text_, std::string()), code);
  }

  // The document comes in one piece, so that no number is cut.
  bool on_number_part(std::string_view, error_code&) { return true; }
  bool on_int64(std::int64_t number, std::string_view, error_code& code) { return Add(number, code); }
  bool on_uint64(std::uint64_t number, std::string_view, error_code& code) { return Add(number, code); }
  // From the digits: the parser's own conversion is one bit off for many of them.
  bool on_double(double, std::string_view digits, error_code& code) {
    const double number = std::strtod(std::string(digits).c_str(), nullptr);
    if (!std::isfinite(number)) return Fail(error::exponent_overflow, code);
    return Add(number, code);
  }
  bool on_bool(bool truth, error_code& code) { return Add(truth, code); }
  bool on_null(error_code& code) { return Add(platform::Null(), code); }

  bool on_comment_part(std::string_view, error_code&) { return true; }
  bool on_comment(std::string_view, error_code&) { return true; }

 private:
  // An array or object being built, and the key that its next member will have.
  struct Container {
    Value::State value;
    std::string key;
  };

  static bool Fail(error reason, error_code& code) {
    code = reason;
    return false;
  }

  bool IsKeyOfInterest() const { return level_ == 1 || building_; }

  bool Begin(Value::State empty, error_code& code) {
    if (level_ == 0 && !std::holds_alternative<Dictionary>(empty)) return Fail(error::not_object, code);
    ++level_;
    if (level_ == 1 || building_) open_.push_back({std::move(empty), {}});
    return true;
  }

  bool End(error_code& code) {
    --level_;
    if (level_ == 0 || !building_) return true;
    Value::State complete = std::move(open_.back().value);
    open_.pop_back();
    return Add(std::move(complete), code);
  }

  bool Add(Value::State value, error_code& code) {
    if (level_ == 0) return Fail(error::not_object, code);
    if (!building_) return true;
    if (++kept_ > keptValues) return Fail(error::array_too_large, code);
    Container& container = open_.back();
    if (auto* array = std::get_if<Array>(&container.value)) {
      array->emplace_back(std::move(value));
      return true;
    }
    auto& object = std::get<Dictionary>(container.value);
    object.Set(std::exchange(container.key, {}), std::move(value));
    return object.size() <= membersOfAKeptObject || Fail(error::object_too_large, code);
  }

  const std::initializer_list<std::string_view> keep_;
  std::vector<Container> open_;  // the first is the document itself
  std::size_t level_ = 0;        // of the containers open, built or not
  std::size_t kept_ = 0;
  bool building_ = false;  // inside a member that is kept
  std::string text_;       // the parts of a key or text so far
};

void AppendQuoted(std::string& json, std::string_view text) {
  json += '"';
  for (const char character : text::ToUtf8(text)) {
    if (static_cast<unsigned char>(character) < 0x20) {
      constexpr char digits[] = "0123456789abcdef";
      json.append("\\u00").append(1, digits[character >> 4]).append(1, digits[character & 0xF]);
      continue;
    }
    if (character == '"' || character == '\\') json += '\\';
    json += character;
  }
  json += '"';
}

// Appends JSON to a text, up to the first thing that JSON cannot hold.
class Writer {
 public:
  // Null until then.
  [[nodiscard]] const char* Error() const { return error_; }
  [[nodiscard]] std::string TakeText() { return std::move(text_); }

  void Write(const Value& value) { std::visit(*this, value.state()); }

  void operator()(platform::Null) { text_ += "null"; }
  void operator()(bool truth) { text_ += truth ? "true" : "false"; }
  void operator()(std::int64_t number) { text_ += std::to_string(number); }
  void operator()(std::uint64_t number) { text_ += std::to_string(number); }
  void operator()(double number) {
    if (!std::isfinite(number)) return Fail("a number that is not finite");
    // As few digits as bring the number back. std::to_chars would give them, but is not on every system that we run on.
    std::array<char, 32> digits{};
    for (int count = 1; count <= 17; ++count) {
      std::snprintf(digits.data(), digits.size(), "%.*g", count, number);
      if (std::strtod(digits.data(), nullptr) == number) break;
    }
    text_ += digits.data();
  }
  void operator()(const std::string& text) { AppendQuoted(text_, text); }
  void operator()(platform::Time) { Fail("a date"); }
  void operator()(std::chrono::sys_seconds) { Fail("a date"); }
  void operator()(const platform::Data&) { Fail("data"); }
  void operator()(platform::Uid) { Fail("a uid"); }
  void operator()(const Array& array) {
    WriteMembers('[', array, ']', [this](const Value& value) { Write(value); });
  }
  void operator()(const Dictionary& dictionary) {
    WriteMembers('{', dictionary, '}', [this](const std::pair<std::string, Value>& member) {
      (*this)(member.first);
      text_ += ':';
      Write(member.second);
    });
  }

 private:
  void Fail(const char* what) { error_ = what; }

  template <typename Container, typename WriteMember>
  void WriteMembers(char opening, const Container& members, char closing, WriteMember writeMember) {
    if (level_ == writtenLevels) return Fail("a value nested too deeply");
    ++level_;
    text_ += opening;
    for (const auto& member : members) {
      if (&member != &*members.begin()) text_ += ',';
      writeMember(member);
      if (error_ != nullptr) return;
    }
    text_ += closing;
    --level_;
  }

  std::string text_;
  std::size_t level_ = 0;
  const char* error_ = nullptr;
};

}  // namespace

std::variant<Dictionary, Error> Parse(std::string_view text, std::initializer_list<std::string_view> keep) {
  boost::json::parse_options options;
  options.max_depth = parsedLevels;
  boost::json::basic_parser<Builder> parser(options, keep);
  error_code code;
  const std::size_t position = parser.write_some(false, text.data(), text.size(), code);
  if (!code && position < text.size()) code = error::extra_data;
  if (code) return Error{code.message() + " at byte " + std::to_string(position)};
  return parser.handler().TakeDocument();
}

std::variant<std::string, Error> Write(const Value& value) {
  Writer writer;
  writer.Write(value);
  if (writer.Error() != nullptr) return Error{std::string("JSON cannot hold ") + writer.Error()};
  return writer.TakeText();
}

}  // namespace json
