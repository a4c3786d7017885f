#include <algorithm>
#include <array>
#include <string>
#include <variant>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Clock.h"
#include "platform/System.h"
#include "support/Dates.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

using Text = MyDaemon::Text;

// Where an element goes; its type says how it is converted.
using Target = std::variant<Text MyDaemon::*, std::int32_t MyDaemon::*, bool MyDaemon::*, Text ProcessValues::*>;

struct Row {
  const char* label;  // null: not logged
  Target target;
};

constexpr std::size_t firstElement = 2;
constexpr std::size_t leastElements = 24;

// Elements 2 to 30.
const auto& Rows() {
  static const std::array<Row, 29> rows = {{
      {"appName: ", &MyDaemon::appName},
      {"appVersion: ", &MyDaemon::appVersion},
      {"iconPath: ", &MyDaemon::iconPath},
      {"crPath: ", &MyDaemon::crPath},
      {"MalvexCrashReporterValue: ", &MyDaemon::initValue},
      {"browserAppName: ", &MyDaemon::browserAppName},
      {"browserAppVersion: ", &MyDaemon::browserAppVersion},
      {"browserAppBuild: ", &MyDaemon::browserAppBuild},
      {"binaryImageName: ", &MyDaemon::binaryImageName},
      {"defaultDescription: ", &MyDaemon::defaultDescription},
      {"malvexProductVersion: ", &MyDaemon::malvexProductVersion},
      {"malvexProductBuild: ", &MyDaemon::malvexProductBuild},
      {"skylanceProductFamily: ", &MyDaemon::skylanceProductFamily},
      {"skylanceProductName: ", &MyDaemon::skylanceProductName},
      {"crashDialogDisplayName: ", &MyDaemon::crashDialogDisplayName},
      {"showOnlyOnce: ", &MyDaemon::showOnlyOnce},
      {"scalingFactor: ", &MyDaemon::scalingFactor},
      {"showCRDialogForSignal: ", &MyDaemon::showCRDialogForSignal},
      {"crDialogOptions: ", &MyDaemon::crDialogOptions},
      {"crDialogEmail: ", &MyDaemon::crDialogEmail},
      {"crashReporterVersion: ", &MyDaemon::crashReporterVersion},
      {"isAppLaunchedFromLaunchd: ", &MyDaemon::isAppLaunchedFromLaunchd},
      {"daemonWaitTimeInSeconds: ", &MyDaemon::daemonWaitTimeInSeconds},
      {"disableCrashReporting: ", &ProcessValues::disableCrashReporting},
      {"acctUserGUID: ", &MyDaemon::acctUserGUID},
      {"codeType: ", &MyDaemon::codeType},
      {"logCrashingModulePreference: ", &MyDaemon::logCrashingModulePreference},
      {"sessionLicenseTypeVal: ", &MyDaemon::sessionLicenseTypeVal},
      {nullptr, &MyDaemon::isSignalHandlingEnabled},
  }};
  return rows;
}

struct Fill {
  MyDaemon& daemon;
  const std::string& element;

  void operator()(Text MyDaemon::*field) const { daemon.*field = element; }
  void operator()(std::int32_t MyDaemon::*field) const { daemon.*field = text::IntegerValue(element); }
  void operator()(bool MyDaemon::*field) const { daemon.*field = text::BooleanValue(element); }
  void operator()(Text ProcessValues::*field) const { ProcessWide().*field = element; }
};

struct Show {
  const MyDaemon& daemon;

  std::string operator()(Text MyDaemon::*field) const { return (daemon.*field).value_or(""); }
  std::string operator()(std::int32_t MyDaemon::*field) const { return std::to_string(daemon.*field); }
  std::string operator()(bool MyDaemon::*field) const { return daemon.*field ? "1" : "0"; }
  std::string operator()(Text ProcessValues::*field) const { return (ProcessWide().*field).value_or(""); }
};

void LogArguments(const MyDaemon& daemon) {
  LogInfo("Argument list:");
  for (const Row& row : Rows()) {
    if (row.label == nullptr) continue;
    LogInfo(row.label + std::visit(Show{daemon}, row.target));
    if (row.target == Target(&MyDaemon::codeType)) {
      LogInfo("crashPadDumpDirectory: " + daemon.crashPadDumpDirectory.Get().value_or(""));
      LogInfo("crashPadDumpFile: " + daemon.crashPadDumpFile.value_or(""));
      LogInfo("isDumpAttached: " + daemon.isDumpAttached.value_or(""));
    }
  }
}

std::string CleanHostName(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '-');
  std::erase(name, '\'');
  return name;
}

}  // namespace

// The threshold is lower than the last element read: a list in between is a host's mistake that nothing can make good.
bool MyDaemon::FetchDaemonArguments() {
  const auto& arguments = ProcessWide().arguments;
  if (arguments.size() < leastElements) {
    LogError("Insufficient number of arguments passed to CRDaemon");
    return false;
  }
  std::string line;
  for (const std::string& argument : arguments) line += "\"" + argument + "\" ";
  LogInfo("Complete Argument List: " + line);

  std::size_t element = firstElement;
  for (const Row& row : Rows()) {
    if (element == arguments.size()) LogError("Argument " + std::to_string(element) + " is missing");
    std::visit(Fill{*this, arguments.at(element)}, row.target);
    ++element;
  }
  crashPadDumpDirectory.Set("");
  crashPadDumpFile = "";
  isDumpAttached = "No";
  LogArguments(*this);
  return true;
}

void MyDaemon::initVariables() {
  LogInfo("Initialize variables:");
  problemReporterFound = false;
  problemReporterDied = false;
  hostname = CleanHostName(platform::LocalHostName());
  LogInfo("hostname: " + *hostname);
  currentDate = dates::FormatDay(platform::Now());

  glimmerLogPath.Set(FileOfThisRun(paths::Join(ProcessWide().UserLibrary, names::malvexLogs),
                                   "glimmerData_" + processId.value_or("") + ".sllog"));
  LogInfo("glimmerLogPath: " + glimmerLogPath.Get().value_or(""));
  ProcessWide().exitOnExitZero = isAppLaunchedFromLaunchd == "1";
  LogInfo("glimmerLogPath: " + glimmerLogPath.Get().value_or(""));

  windowDictionary.clear();
  PopulateDictionaryWithWindows();
  windowId.reset();
  ProcessWide().unknownExitCode = false;
  lastNumberOfProcesses = -1;
  currentNumberOfProcesses = 0;
  appleDialogGoDownCount = 0;
  crashLogCreateWaitTime = 0;
  foundWindow = 0;
  isWindowExist = true;
  isExceptionDelivered = 0;
}
