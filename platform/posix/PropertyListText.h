#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// Texts and dates as XML property lists hold them. Pure functions.
namespace platform {

// Without the characters that XML cannot hold; each byte that belongs to no UTF-8 character becomes U+FFFD.
[[nodiscard]] std::string XmlText(std::string_view bytes);

// "yyyy-MM-ddTHH:mm:ssZ", UTC.
[[nodiscard]] std::string XmlDate(std::chrono::sys_seconds time);
[[nodiscard]] std::optional<std::chrono::sys_seconds> ParseXmlDate(const std::string& text);

}  // namespace platform
