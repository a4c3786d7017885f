#include "platform/posix/PropertyListText.h"

#include <time.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace platform {
namespace {

struct Character {
  std::uint32_t code = 0;
  std::size_t bytes = 0;  // 0: none begins here
};

unsigned ByteAt(std::string_view bytes, std::size_t index) { return static_cast<unsigned char>(bytes[index]); }

Character FirstCharacter(std::string_view bytes) {
  const unsigned lead = ByteAt(bytes, 0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || size > bytes.size()) return {};
  std::uint32_t code = lead & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if (ByteAt(bytes, i) >> 6U != 2) return {};
    code = code << 6U | (ByteAt(bytes, i) & 0x3FU);
  }
  const bool isOverlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  return isOverlong || isSurrogate || code > 0x10FFFF ? Character{} : Character{code, size};
}

bool IsXml(std::uint32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  return code != 0xFFFE && code != 0xFFFF;
}

}  // namespace

std::string XmlText(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Character character = FirstCharacter(bytes);
    if (character.bytes == 0) {
      text += "\xEF\xBF\xBD";
      bytes.remove_prefix(1);
    } else {
      if (IsXml(character.code)) text += bytes.substr(0, character.bytes);
      bytes.remove_prefix(character.bytes);
    }
  }
  return text;
}

std::string XmlDate(std::chrono::sys_seconds time) {
  const time_t seconds = time.time_since_epoch().count();
  struct tm parts {};
  if (gmtime_r(&seconds, &parts) == nullptr) return {};
  std::array<char, 80> text{};
  // strftime would not pad the year.
  std::snprintf(text.data(), text.size(), "%04ld-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900L, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text.data();
}

std::optional<std::chrono::sys_seconds> ParseXmlDate(const std::string& text) {
  struct tm parts {};
  if (strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr) return std::nullopt;
  return std::chrono::sys_seconds(std::chrono::seconds(timegm(&parts)));
}

}  // namespace platform
