#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "support/Json.h"
#include "support/Text.h"

namespace json {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::size_t writtenLevels = 1000;

// Of printable ASCII that stands for itself: most texts are nothing else.
bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

void AppendQuoted(std::string& json, std::string_view text) {
  if (IsPlain(text)) {
    json.append(1, '"').append(text).append(1, '"');
    return;
  }
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

std::variant<std::string, Error> Write(const Value& value) {
  Writer writer;
  writer.Write(value);
  if (writer.Error() != nullptr) return Error{std::string("JSON cannot hold ") + writer.Error()};
  return writer.TakeText();
}

}  // namespace json
