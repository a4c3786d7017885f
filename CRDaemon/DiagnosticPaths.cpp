#include "CRDaemon/DiagnosticPaths.h"

#include "CRDaemon/ProcessValues.h"
#include "platform/Files.h"
#include "support/AtomicFile.h"
#include "support/FileSystemUtils.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

constexpr char notRegular[] = "not a regular file";
constexpr char relativeSystemReports[] = "Library/Logs/DiagnosticReports";

std::string InUserLibrary(const char* folder) {
  return paths::ExpandTilde(paths::Join(ProcessWide().UserLibrary, folder));
}

std::string Announced(const char* label, std::string path, CodePlace place = {__builtin_FILE(), __builtin_LINE()}) {
  LogInfo(label + path, place);
  return path;
}

}  // namespace

std::string GetUserDiagnosticPath() {
  return Announced("UserDiagnosticPath: ", InUserLibrary(names::diagnosticReports));
}

std::string GetUserDiagnosticPathForNewHardware() {
  return Announced("UserDiagnosticPathForNewHardware: ", InUserLibrary(names::diagnosticReportsForNewHardware));
}

std::string GetSystemDiagnosticPathForNewHardware() {
  return Announced("SystemDiagnosticPathForNewHardware: ", relativeSystemReports);
}

std::string GetSystemDiagnosticPath() { return Announced("SystemDiagnosticPath: ", relativeSystemReports); }

std::string UserReportPath(const std::string& name) {
  return paths::Join(InUserLibrary(names::diagnosticReports), name);
}

void LogRefused(const std::string& path, const std::string& why) {
  constexpr std::size_t mostNamed = 64;
  auto& refused = ProcessWide().refused;
  if (refused.size() > mostNamed || !refused.insert(path).second) return;
  if (refused.size() > mostNamed) return LogError("no more refused files are named");
  LogError("refused to read report " + paths::Shown(path) + ": " + why);
}

void LogIfRefused(const std::string& path, std::error_code error) {
  if (platform::IsRefusal(error)) LogRefused(path, error.message());
}

std::optional<std::string> AcceptReportText(const std::string& path, platform::Result<std::string> bytes) {
  if (!bytes) {
    LogIfRefused(path, bytes.Error());
    return std::nullopt;
  }
  if (!text::IsUtf8(*bytes)) return std::nullopt;
  return std::move(*bytes);
}

std::optional<std::string> ReadReportText(const std::string& path) {
  return AcceptReportText(path, platform::ReadFile(path, platform::reportLimitBytes));
}

bool ReadReportPieces(const std::string& path, const std::function<void(std::string_view)>& take) {
  const std::error_code error = platform::ReadPieces(path, platform::reportLimitBytes, take);
  LogIfRefused(path, error);
  return !error;
}

std::optional<std::string> FirstExisting(std::initializer_list<std::string> candidates) {
  for (const std::string& path : candidates) {
    const platform::FileKind kind = platform::KindOf(path);
    if (kind == platform::FileKind::regular) return path;
    if (kind != platform::FileKind::absent) LogRefused(path, notRegular);
  }
  return std::nullopt;
}

bool CopyCrashFileToUserLibrary(const std::string& name) {
  const auto source =
      FirstExisting({paths::Join(systemReports, name), paths::Join(GetUserDiagnosticPathForNewHardware(), name),
                     paths::Join(GetSystemDiagnosticPathForNewHardware(), name)});
  if (!source) return true;

  const auto text = ReadReportText(*source);
  if (!text) {
    LogInfo("Error while reading content of crash file from system library");
    return false;
  }
  const std::string destination = paths::Join(GetUserDiagnosticPath(), name);
  if (FileSystemUtils::DoesPathExist(destination)) return true;
  const std::error_code error = WriteNew(destination, *text);
  if (!error || error == std::errc::file_exists) return true;
  LogInfo("Error while copying crash file to user library ");
  return false;
}
