#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

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

// Names in the log what the guard kept from being read, opened or removed: each path once a run, whatever looks at it
// every second, and 64 of them at most. Worker.
void LogRefused(const std::string& path, const std::string& why);
// The same, when the error is a refusal.
void LogIfRefused(const std::string& path, std::error_code error);

// A report's bytes as text, when they could be read and are UTF-8. What the guard refused (a link, a FIFO, a folder,
// over 64 MiB) is named in the log.
[[nodiscard]] std::optional<std::string> AcceptReportText(const std::string& path, platform::Result<std::string> bytes);
[[nodiscard]] std::optional<std::string> ReadReportText(const std::string& path);
// Its bytes piece by piece; false when what was handed over is not the whole of them.
[[nodiscard]] bool ReadReportPieces(const std::string& path, const std::function<void(std::string_view)>& take);

// The first that exists. What is no regular file is named in the log, and the next one looked for.
[[nodiscard]] std::optional<std::string> FirstExisting(std::initializer_list<std::string> candidates);

// Brings a report that stands in a system folder into the user's, where one of that name is left as it is. True also
// when no system folder has it: it is then in the user's already.
[[nodiscard]] bool CopyCrashFileToUserLibrary(const std::string& name);
