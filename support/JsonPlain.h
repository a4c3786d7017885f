#pragma once

#include <cstddef>
#include <string_view>

namespace json {

// How deep a plain element may nest.
inline constexpr std::size_t plainLevels = 16;

// How many bytes of `text`, which goes on in an array right behind a comma, are whole elements with the comma behind
// them that every parser would take. It ends at the first one that is not plain, which may be JSON all the same: with a
// number that is no short integer, an escape by number, a byte beyond ASCII.
[[nodiscard]] std::size_t PlainElements(std::string_view text);

}  // namespace json
