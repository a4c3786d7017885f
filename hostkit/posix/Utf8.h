#pragma once

#include <cstddef>
#include <string_view>

namespace hostkit {

// The bytes of the character that `text` begins with; 0 when it begins with none, or with a control character. Safe in
// a signal handler.
[[nodiscard]] constexpr std::size_t PrintableSize(std::string_view text) {
  if (text.empty()) return 0;
  const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
  const std::size_t size = lead >= 0xC2 && lead <= 0xDF   ? 2
                           : (lead & 0xF0U) == 0xE0       ? 3
                           : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                          : 0;
  if (size == 0 || text.size() < size) return 0;
  for (std::size_t at = 1; at < size; ++at) {
    if ((byte(at) & 0xC0U) != 0x80) return 0;
  }
  const unsigned char second = byte(1);
  const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  const bool beyond = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
  return overlong || beyond ? 0 : size;
}

// Whether it can stand in a line of a report: the daemon passes over a report that is not UTF-8.
[[nodiscard]] constexpr bool IsPrintable(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = PrintableSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace hostkit
