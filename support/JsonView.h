#pragma once

#include <optional>
#include <string_view>

#include "platform/PropertyList.h"

// Looks into a text of JSON in place, however much it holds. The text must have passed json::Parse. A view is one value
// of it, without blanks around it, and lives as long as the text.
namespace json {

// The outermost value.
[[nodiscard]] std::string_view View(std::string_view document);

// The value that counts, which is the last one under this key, of letters; none when there is no such member or no
// object.
[[nodiscard]] std::optional<std::string_view> MemberOf(std::string_view object, std::string_view key);

// The elements of an array one by one; of anything else, none.
class Elements {
 public:
  explicit Elements(std::string_view array);
  [[nodiscard]] std::optional<std::string_view> Next();

 private:
  std::string_view rest_;
};

[[nodiscard]] bool IsArray(std::string_view value);

// The value itself. A text is cut to 64 KiB, and what holds more than a few values is null.
[[nodiscard]] platform::Value ValueOf(std::string_view value);

}  // namespace json
