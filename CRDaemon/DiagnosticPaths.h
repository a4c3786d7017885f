#pragma once

#include <initializer_list>
#include <optional>
#include <string>

#include "platform/Result.h"

inline constexpr char systemReports[] = "/Library/Logs/DiagnosticReports/";
inline constexpr char systemReportsForNewHardware[] = "/Library/Logs/DiagnosticReportsForNewHardware/";

// The report folders. Each call writes the path into the log. The two "system" ones are relative to the working
// directory.
[[nodiscard]] std::string GetUserDiagnosticPath();
[[nodiscard]] std::string GetUserDiagnosticPathForNewHardware();
[[nodiscard]] std::string GetSystemDiagnosticPathForNewHardware();
[[nodiscard]] std::string GetSystemDiagnosticPath();

// Where `name` lies, or would, in the user's report folder. Writes nothing into the log.
[[nodiscard]] std::string UserReportPath(const std::string& name);

// A report's bytes as text, when they could be read and are UTF-8. What the guard refused (a link, a FIFO, a folder,
// over 64 MiB) is named in the log.
[[nodiscard]] std::optional<std::string> AcceptReportText(const std::string& path, platform::Result<std::string> bytes);
[[nodiscard]] std::optional<std::string> ReadReportText(const std::string& path);

[[nodiscard]] std::optional<std::string> FirstExisting(std::initializer_list<std::string> candidates);

// Brings a report that stands in a system folder into the user's, where one of that name is left as it is. True also
// when no system folder has it: it is then in the user's already.
[[nodiscard]] bool CopyCrashFileToUserLibrary(const std::string& name);
