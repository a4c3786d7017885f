#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "support/FixedNames.h"
#include "support/Log.h"

namespace {

using UserInfo = std::map<std::string, std::string>;

constexpr std::array<std::string_view, 3> reportingProcesses = {"ReportCrash", "crashdump", "CrashReporter"};

// Hang-up, interrupt, broken pipe, alarm, terminate, CPU and file-size limit, virtual and profiling timer, by their
// numbers on the daemon's native platform, which Linux shares.
constexpr std::array<std::int64_t, 9> handledSignals = {1, 2, 13, 14, 15, 24, 25, 26, 27};
constexpr std::int64_t killSignal = 9;

bool Concerns(const MyDaemon::Text& processId, const UserInfo& userInfo) {
  const auto sender = userInfo.find(names::processIdKey);
  return sender != userInfo.end() && processId == sender->second;
}

}  // namespace

// The handlers may run several at a time: they compare texts and set atomics, the status before the notice.
void MyDaemon::listenForTerminateNotifications() {
  platform::ObserveTermination([this](const std::string& id, std::int64_t status) {
    if (processId != id) return;
    exitStatus = status;
    terminateNotified = true;
  });
  platform::ObserveDistributed(std::nullopt, [this](const std::string& name, const UserInfo&) {
    if (name != names::logoutContinued) return;
    endTask = true;
    EndRunLoop();
  });
  platform::ObserveDistributed(names::exceptionDelivered, [this](const std::string& name, const UserInfo& userInfo) {
    if (name != names::exceptionDelivered || !Concerns(processId, userInfo)) return;
    LogInfo("Exception delivered");
    isExceptionDelivered = 1;
  });
  platform::ObserveDistributed(names::terminatedNormally, [this](const std::string& name, const UserInfo& userInfo) {
    LogInfo("Got appTerminatedNormally notification in daemon");
    if (name != names::terminatedNormally || !Concerns(processId, userInfo)) return;
    ClearCrashAndTempFiles();
    EndRunLoop();
    endTask = true;
  });
  while (platform::WaitForInput() && !endRunLoop) {
  }
}

std::int32_t MyDaemon::getProcessesCount() {
  std::int32_t count = 0;
  bool foundNow = false;
  for (const std::string& name : platform::ProcessNames()) {
    if (name == names::problemReporter) {
      foundNow = true;
      ++count;
    } else if (std::find(reportingProcesses.begin(), reportingProcesses.end(), name) != reportingProcesses.end()) {
      ++count;
    }
  }
  if (foundNow) problemReporterFound = true;
  if (problemReporterFound && !foundNow) problemReporterDied = true;
  return count;
}

bool MyDaemon::IsNormalExit() const { return ProcessWide().exitOnExitZero && exitStatus == 0 && terminateNotified; }

bool MyDaemon::IsCRHandledSignal() const {
  return terminateNotified && isSignalHandlingEnabled &&
         std::find(handledSignals.begin(), handledSignals.end(), exitStatus.load()) != handledSignals.end();
}

void MyDaemon::SetIsSignalFlagBasedOnExiStatus() {
  if (!IsCRHandledSignal()) return;
  LogInfo("CR handled signal received");
  ProcessWide().isSignal = true;
}

bool MyDaemon::canBeASignalCase() const {
  const ProcessValues& process = ProcessWide();
  return !process.exitOnExitZero || process.unknownExitCode || process.isSignal || exitStatus == killSignal;
}

void MyDaemon::EndRunLoop() {
  endRunLoop = true;
  platform::WakeRunLoop();
}

bool MyDaemon::IsExceptionDeliveredSuccessfully() const { return isExceptionDelivered != 0; }
