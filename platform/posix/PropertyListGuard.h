#pragma once

#include <cstddef>
#include <string_view>

// What must be known of a property list before libplist may see it. The library checks a lot itself, but it recurses as
// deep as the list nests, follows a shared reference as often as it occurs, and ends the process on a key with a NUL in
// it. Pure functions.
namespace platform {

// Far above what preferences and events hold. The worst list within these limits, whose keys all have one hash, takes
// libplist some 0.4 s to read and as long to write; twice as many would take it four times as long.
inline constexpr std::size_t propertyListBytes = std::size_t{4} << 20U;
inline constexpr std::size_t propertyListLevels = 128;
inline constexpr std::size_t propertyListObjects = std::size_t{1} << 13U;  // keys and values

// Whether an XML list (of UTF-8, without a byte-order mark) keeps to the limits. It reads tags, comments, CDATA and
// quotes as libplist does; what that refuses may pass here, and is never counted as less than what that builds.
[[nodiscard]] bool IsSafeXmlPropertyList(std::string_view text);

// Whether every object that can be reached in a binary list lies within it, is of a known kind, and whether the tree
// that it unfolds into keeps to the limits.
[[nodiscard]] bool IsSafeBinaryPropertyList(std::string_view bytes);

}  // namespace platform
