#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "CRDaemon/CrashedModule.h"
#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Files.h"
#include "platform/System.h"
#include "support/AtomicFile.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

// Up to and including the colon; blanks follow it.
constexpr std::string_view sessionLabel = "SkylanceSessionId:";

void Write(const std::string& path, const std::string& lines) {
  if (const std::error_code error = WriteAtomically(path, lines)) {
    LogError("failed to write " + path + " with error: " + error.message());
  }
}

std::string SessionLine(const MyDaemon::Text& record) {
  const std::string_view text = record ? std::string_view(*record) : std::string_view();
  return (text.size() > sessionLabel.size() ? text::Trim(text.substr(sessionLabel.size())) : std::string()) + "\n";
}

}  // namespace

// Until the lines are known the file is there and empty: a reader must not take an older run's for this one's.
void MyDaemon::LogCrashedModuleInfo(const std::string& reportName) {
  const auto folder = paths::JoinPlain(paths::ExpandTilde(paths::Join(ProcessWide().UserLibrary, "Preferences")),
                                       {appName.value_or(""), appVersion.value_or("")});
  if (!folder) {
    LogError("refused as folder names: " + appName.value_or("") + ", " + appVersion.value_or(""));
    return;
  }
  const std::string path = paths::Join(*folder, names::crashModuleFile);
  platform::MakeFolders(*folder);
  Write(path, "");
  SetSkylanceSessionId();

  const auto report = ReadReportText(UserReportPath(reportName));
  if (!report) return;
  const auto lines = platform::ReportsAreJson() ? crashedmodule::LinesFromJson(*report)
                                                : std::optional(crashedmodule::LinesFromText(*report));
  if (lines) Write(path, SessionLine(skylanceSessionID) + *lines);
}
