#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Clock.h"

// The fixed date patterns, in the process's time zone. No locale has a say.
namespace dates {

// "yyyy-MM-dd HH:mm:ss Z" or, with a fraction of the second of one to nine digits, "yyyy-MM-dd HH:mm:ss.SSSS Z". None
// for anything else, for dates that do not exist or that a Time cannot hold, and for text behind the pattern.
[[nodiscard]] std::optional<platform::Time> ParseReportTime(std::string_view text);

// "yyyy-MM-dd'T'HH:mm:ssZZZZZ": 2021-03-04T05:06:07+01:00, or Z for a zero offset. Without the fraction.
[[nodiscard]] std::string FormatEventTime(platform::Time time);
[[nodiscard]] std::optional<platform::Time> ParseEventTime(std::string_view text);

// "yyyy-MM-dd", local.
[[nodiscard]] std::string FormatDay(platform::Time time);

// "yyyy-MM-ddTHH:mm:ssZ", UTC.
[[nodiscard]] std::string FormatLogTime(platform::Time time);

}  // namespace dates
