#include <string>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "platform/Files.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"

// A name put together from what the host passed must not lead anywhere else.
MyDaemon::Text MyDaemon::FileOfThisRun(const std::string& folder, const std::string& name) {
  if (!paths::IsPlainComponent(name)) {
    LogError("refused as a file name: " + name);
    return std::nullopt;
  }
  return paths::ExpandTilde(paths::Join(folder, name));
}

std::string MyDaemon::getLatestHash() { return getDiagnosticReports(); }

void MyDaemon::SetSignalReportPath() {
  const std::string name = appName.value_or("") + "_" + currentDate.value_or("") + "_" + processId.value_or("") + "_" +
                           hostname.value_or("") + "." + reports::CrashExtension();
  crashLogPath.Set(FileOfThisRun(paths::Join(ProcessWide().UserLibrary, names::diagnosticReports), name));
  LogInfo("Setting signal report path as " + crashLogPath.Get().value_or(""));
}

void MyDaemon::SetCrashPathFromNewHash() {
  crashPath.Set(UserReportPath(newHash.value_or("")));
  LogInfo("Setting Crash Path: " + crashPath.Get().value_or(""));
}

void MyDaemon::removeFile(const Text& path) {
  if (path && !path->empty()) platform::RemoveFile(paths::ExpandTilde(*path));
}

void MyDaemon::removeAdditionalDataFile() {
  removeFile(FileOfThisRun(paths::Join(ProcessWide().UserLibrary, names::malvexLogs),
                           "data_" + processId.value_or("") + ".txt"));
}

// What is left in the queue expires with the queue's other files.
void MyDaemon::RemoveUnfinishedFiles() const {
  const std::string preferences = paths::ExpandTilde(paths::Join(ProcessWide().UserLibrary, "Preferences"));
  const platform::Time limit = platform::Now() - Ingester::lifeOfFiles;
  for (const auto& folder : {std::optional(UserReportPath("")), std::optional(preferences),
                             paths::JoinPlain(preferences, {appName.value_or(""), appVersion.value_or("")})}) {
    if (folder) platform::RemoveLeftovers(*folder, limit);
  }
  // The host kit's name of a signal report until that is whole: its host did not live to finish it.
  if (appName && !appName->empty()) RemoveStale(UserReportPath(""), "." + *appName + "_", ".new");
}

// In a handler it may meet the worker on the same files: each removal puts up with a file that is already gone.
void MyDaemon::ClearCrashAndTempFiles() {
  LogInfo("Remove crash files, skylance file (created by CR) and crashpad dump");
  removeAdditionalDataFile();
  removeFile(crashPath.Get());
  removeFile(crashLogPath.Get());
  removeFile(glimmerLogPath.Get());
  removeCrashPadDumpDirectory();
}
