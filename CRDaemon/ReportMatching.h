#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Clock.h"

// Which report belongs to which run, from names, texts and dates alone.
namespace reports {

enum class ReportKind { systemCrash, hostSignal, hang };

// "ips" where reports are JSON, else "crash".
[[nodiscard]] std::string CrashExtension();

// Whether the name holds the application's name and starts with the same character.
[[nodiscard]] bool IsCandidateName(std::string_view name, std::string_view appName);

// By extension, and by whether the process id stands in the name. None for every other file.
[[nodiscard]] std::optional<ReportKind> KindOfReport(std::string_view name, std::string_view crashExtension,
                                                     std::string_view processId);

// Whether one line of the report names the process, in the text or in the JSON layout. The id is looked for as a
// substring.
[[nodiscard]] bool NamesProcess(std::string_view report, std::string_view processId);

// Strictly. An unknown creation date is not earlier.
[[nodiscard]] bool IsEarlier(std::optional<platform::Time> created, platform::Time limit);

// `minutes` before `now`.
[[nodiscard]] platform::Time MinutesBefore(platform::Time now, std::int32_t minutes);

// The lines from the first "Binary Images" on: whether one of them holds `binaryImageName`.
[[nodiscard]] bool HasBinaryImage(std::string_view report, std::string_view binaryImageName);

}  // namespace reports
