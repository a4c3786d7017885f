#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

#include "platform/PropertyList.h"

namespace json {

struct Error {
  std::string description;
};

// A document from untrusted bytes, checked to its end, of which only the members of the outermost object named in
// `keep` are built; all others cost no memory. Objects become dictionaries (of a repeated key the last value counts),
// numbers stay what they are. An Error for what is not JSON, nests deeper than 512 levels, holds a number beyond a
// double, or would build more than 4,000,000 values or an object of more than 256 members.
[[nodiscard]] std::variant<platform::Dictionary, Error> Parse(std::string_view text,
                                                              std::initializer_list<std::string_view> keep);

// Compact. An Error for what JSON cannot hold: dates, data, uids, numbers that are not finite, more than 1,000
// levels. Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::variant<std::string, Error> Write(const platform::Value& value);

}  // namespace json
