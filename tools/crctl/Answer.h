#pragma once

#include <string>

#include "platform/PropertyList.h"

namespace crctl {

// What a verb came to, in both of the forms that it can be printed in.
struct Answer {
  std::string text;           // lines, the last one ended too; may be empty
  platform::Dictionary json;  // the same
  std::string error;          // why the verb did not do what was asked; empty when it did
  bool isWell = true;         // of an error: false
};

// A line of an answer's text, harmless and ended.
[[nodiscard]] std::string Line(const std::string& text);

[[nodiscard]] Answer Failed(const std::string& why);

// With a plural "s" unless it is one: "3 events".
[[nodiscard]] std::string Count(std::size_t number, const std::string& thing);

// "90 s", "5 min", "3 h", "12 days"
[[nodiscard]] std::string Duration(std::chrono::nanoseconds duration);

}  // namespace crctl
