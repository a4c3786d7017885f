#include "support/JsonView.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string>
#include <utility>
#include <variant>

#include "support/Json.h"

namespace json {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr Limits smallValue = {.values = 16, .bytes = std::size_t{64} << 10U, .levels = 8};

// Past the text whose opening quote stands first.
std::size_t EndOfText(std::string_view json, std::size_t begin) {
  for (std::size_t from = begin + 1;;) {
    const std::size_t mark = json.find_first_of("\"\\", from);
    if (mark == std::string_view::npos) return json.size();
    if (json[mark] == '"') return mark + 1;
    from = mark + 2;
  }
}

std::size_t EndOfContainer(std::string_view json) {
  std::size_t level = 0;
  for (std::size_t i = 0; i < json.size(); ++i) {
    switch (json[i]) {
      case '"':
        i = EndOfText(json, i) - 1;
        break;
      case '{':
      case '[':
        ++level;
        break;
      case '}':
      case ']':
        if (--level == 0) return i + 1;
        break;
      default:
        break;
    }
  }
  return json.size();
}

void SkipBlanks(std::string_view& json) { json.remove_prefix(std::min(json.find_first_not_of(blanks), json.size())); }

// The value that `json` begins with, which is taken off.
std::string_view TakeValue(std::string_view& json) {
  const char first = json.empty() ? '\0' : json.front();
  const std::size_t end = first == '"'                   ? EndOfText(json, 0)
                          : first == '{' || first == '[' ? EndOfContainer(json)
                                                         : std::min(json.find_first_of(",]} \t\r\n"), json.size());
  const std::string_view value = json.substr(0, end);
  json.remove_prefix(end);
  SkipBlanks(json);
  return value;
}

// An opening bracket, comma or colon, and the blanks behind it.
void SkipMark(std::string_view& json) {
  json.remove_prefix(std::min<std::size_t>(1, json.size()));
  SkipBlanks(json);
}

// Whether a value follows; the comma before it is taken off.
bool HasNext(std::string_view& json, char closing) {
  if (json.starts_with(',')) SkipMark(json);
  return !json.empty() && json.front() != closing;
}

// The letter that `raw` begins with, which is taken off; NUL for an escape that stands for none.
char TakeLetter(std::string_view& raw) {
  constexpr std::size_t escapeBytes = 6;  // "\\u0041"
  const std::size_t count = raw.front() == '\\' ? std::min(escapeBytes, raw.size()) : 1;
  unsigned code = static_cast<unsigned char>(raw.front());
  if (count > 1 && std::from_chars(raw.data() + 2, raw.data() + count, code, 16).ptr != raw.data() + count) code = 0;
  raw.remove_prefix(count);
  return code < 0x80 || count == 1 ? static_cast<char>(code) : '\0';
}

bool IsKey(std::string_view quoted, std::string_view key) {
  std::string_view raw = quoted.substr(1, quoted.size() - 2);
  if (raw.find('\\') == std::string_view::npos) return raw == key;
  for (const char letter : key) {
    if (raw.empty() || TakeLetter(raw) != letter) return false;
  }
  return raw.empty();
}

}  // namespace

std::string_view View(std::string_view document) {
  SkipBlanks(document);
  return TakeValue(document);
}

std::optional<std::string_view> MemberOf(std::string_view object, std::string_view key) {
  if (!object.starts_with('{')) return std::nullopt;
  std::optional<std::string_view> found;
  SkipMark(object);
  while (HasNext(object, '}')) {
    const std::string_view name = TakeValue(object);
    SkipMark(object);
    const std::string_view value = TakeValue(object);
    if (IsKey(name, key)) found = value;
  }
  return found;
}

Elements::Elements(std::string_view array) : rest_(IsArray(array) ? array : std::string_view()) { SkipMark(rest_); }

std::optional<std::string_view> Elements::Next() {
  if (!HasNext(rest_, ']')) return std::nullopt;
  return TakeValue(rest_);
}

bool IsArray(std::string_view value) { return value.starts_with('['); }

platform::Value ValueOf(std::string_view value) {
  if (value.starts_with('"') && value.find('\\') == std::string_view::npos && value.size() <= smallValue.bytes) {
    return {value.substr(1, value.size() - 2)};
  }
  Parser parser({{.name = "value"}}, smallValue);
  parser.Write("{\"value\":");
  parser.Write(value);
  parser.Write("}");
  const auto parsed = parser.Finish();
  const auto* document = std::get_if<platform::Dictionary>(&parsed);
  const auto* found = document == nullptr ? nullptr : document->Find("value");
  return found == nullptr ? platform::Value() : *found;
}

}  // namespace json
