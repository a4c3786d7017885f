#include <string>
#include <utility>
#include <vector>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "platform/Tasks.h"
#include "support/Log.h"

namespace {

platform::Result<std::int32_t> Start(const std::string& executable, const std::vector<MyDaemon::Text>& arguments) {
  std::vector<std::string> passed;
  for (const auto& argument : arguments) {
    if (!argument) break;
    passed.push_back(*argument);
  }
  const auto task = platform::StartTask(executable, passed);
  if (task) platform::BringToFront(*task);
  return task;
}

}  // namespace

int LaunchTask(const std::string& executable, const std::vector<std::optional<std::string>>& arguments) {
  return Start(executable, arguments) ? 0 : 1;
}

bool MyDaemon::isBrowserApp() const { return browserAppBuild && !browserAppBuild->empty(); }

std::vector<MyDaemon::Text> MyDaemon::ReporterArguments(const Text& name, const Text& version) const {
  return {crashPath.Get(),
          name,
          version,
          iconPath,
          initValue,
          processId,
          defaultDescription,
          malvexProductVersion,
          malvexProductBuild,
          skylanceSessionID,
          crashDialogDisplayName,
          showOnlyOnce,
          scalingFactor,
          ProcessWide().isCRGeneratedReport,
          ProcessWide().additionalHangFile,
          parentExitCode,
          crashReporterVersion,
          crDialogOptions,
          crDialogEmail,
          crashPadDumpFile,
          isDumpAttached,
          acctUserGUID,
          codeType,
          sessionLicenseTypeVal};
}

void MyDaemon::LaunchMalvexCrashReporterApp() {
  if (isBrowserApp()) {
    LaunchMCRAppForBrowserApp();
  } else {
    LaunchMCRAppForNonBrowserApp();
  }
}

void MyDaemon::LaunchMCRAppForNonBrowserApp() {
  LogInfo("Launching Malvex crash reporter for Non browser apps");
  const std::string reporter = crPath.value_or("");
  const auto started = Start(reporter, ReporterArguments(appName, appVersion));
  if (!started) LogError("failed to launch " + reporter + " with error: " + started.Error().message());
  LogInfo(started ? "Malvex crash reporter launched successfully" : "Malvex crash reporter launch failed");
}

// A crash outside the plug-in's binary is the browser's own affair.
void MyDaemon::LaunchMCRAppForBrowserApp() {
  LogInfo("Launching Malvex crash reporter for browser apps");
  const auto report = ReadReportText(crashPath.Get().value_or(""));
  if (!report || !reports::HasBinaryImage(*report, binaryImageName.value_or(""))) return;
  static_cast<void>(LaunchTask(crPath.value_or(""), ReporterArguments(browserAppName, browserAppVersion)));
}
