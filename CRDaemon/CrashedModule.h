#pragma once

#include <optional>
#include <string>
#include <string_view>

// Which queue crashed, and in which module, as a report tells it: the lines that follow the session in CrashModule.txt.
namespace crashedmodule {

// None when the report does not tell enough to write anything.
[[nodiscard]] std::optional<std::string> LinesFromJson(std::string_view report);

// Empty when there is no crashed thread, or more than one.
[[nodiscard]] std::string LinesFromText(std::string_view report);

}  // namespace crashedmodule
