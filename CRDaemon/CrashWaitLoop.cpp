#include <memory>
#include <string>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Clock.h"
#include "platform/Processes.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Text.h"

namespace {

constexpr std::chrono::seconds pass{1};
constexpr std::uint32_t passesUntilSilence = 5;  // then the end of the host counts as observed, its status as unknown

}  // namespace

// What the wait remembers from pass to pass.
struct MyDaemon::Watch {
  std::uint32_t waitCount = 0;  // passes in which the host was gone and its end not announced; gates two log lines
  bool firstPass = true;        // the crashed module has not been written yet
};

void MyDaemon::waitForCrash() {
  LogInfo("Inside waitForCrash");
  if (!BeginWatch()) return;

  ScopedIngester ingester(std::make_unique<Ingester>(appName.value_or(""), appVersion.value_or(""),
                                                     crashReporterVersion.value_or(""), SessionGuid(),
                                                     acctUserGUID.value_or("")));
  ingester->start();
  Watch watch;
  bool stopped = !WaitForHostEnd();
  while (!stopped) {
    switch (DecideOnePass(watch)) {
      case Pass::nothing:
        return Finish();
      case Pass::report:
        return HandOver(ingester);
      case Pass::again:
        stopped = endTask;
        if (stopped) PopulateDictionaryWithWindows();
    }
  }
  EndRunLoop();
}

bool MyDaemon::BeginWatch() {
  if (!FetchDaemonArguments()) return false;
  initVariables();
  // Reports from before this run are never taken for its crash.
  if (!getStoredCrash()) setStoredCrash(getLatestHash());
  CleanUpDiagnosticFolders();
  LogInfo("CR dialog Preference for force quit: " + showCRDialogForSignal.value_or(""));
  SetSkylanceSessionId();
  return true;
}

void MyDaemon::CleanUpDiagnosticFolders() {
  LogInfo("CleanupDiagnostics: User diagnostics directory clean up");
  CleanupDiagnostics(GetUserDiagnosticPath());
  LogInfo("CleanupDiagnostics: System diagnostics directory clean up");
  CleanupDiagnostics(GetSystemDiagnosticPath());
  LogInfo("CleanupDiagnostics: UserDiagnosticPathForNewHardware clean up");
  CleanupDiagnostics(GetUserDiagnosticPathForNewHardware());
  LogInfo("CleanupDiagnostics: SystemDiagnosticPathForNewHardware clean up");
  CleanupDiagnostics(GetSystemDiagnosticPathForNewHardware());
  RemoveUnfinishedFiles();
}

// False when the daemon was told to stop.
bool MyDaemon::WaitForHostEnd() {
  while (!endTask) {
    platform::SleepFor(pass);
    if (!platform::HostLives(HostId())) {
      SetSignalReportPath();
      SetCrashPadDumpFile();
      if (!endTask) return true;
    }
    PopulateDictionaryWithWindows();
  }
  return false;
}

MyDaemon::Pass MyDaemon::DecideOnePass(Watch& watch) {
  if (!terminateNotified) return WaitForAnnouncement(watch);
  const bool announcedAtOnce = watch.waitCount == 0;
  if (announcedAtOnce) LogInfo("Terminate Notified");
  ++appleDialogGoDownCount;
  ++crashLogCreateWaitTime;
  currentNumberOfProcesses = getProcessesCount();
  if (announcedAtOnce) LogInfo("Number of current processes: " + std::to_string(currentNumberOfProcesses));
  newHash = getLatestHash();
  initialHash = getStoredCrash();
  LogNewCrashedModule(watch);
  if (IsNormalExit()) {
    LogInfo("Normal Exit");
    return Pass::nothing;
  }
  SetIsSignalFlagBasedOnExiStatus();
  if (WaitForHangFileCreation() == 0) return Pass::again;
  return AwaitReport();
}

MyDaemon::Pass MyDaemon::WaitForAnnouncement(Watch& watch) {
  if (watch.waitCount == passesUntilSilence) {
    exitStatus = -1;
    ProcessWide().unknownExitCode = true;
    terminateNotified = true;
    LogInfo("exitStatus -1");
  } else {
    platform::SleepFor(pass);
    ++watch.waitCount;
  }
  return Pass::again;
}

void MyDaemon::LogNewCrashedModule(Watch& watch) {
  const bool isNew = newHash && newHash != names::nothing && newHash != initialHash;
  if (!watch.firstPass || !isNew || ProcessWide().isSignal || !logCrashingModulePreference) return;
  LogCrashedModuleInfo(*newHash);
  watch.firstPass = false;
}

MyDaemon::Pass MyDaemon::AwaitReport() {
  if (IsExceptionDeliveredSuccessfully()) {
    if (text::EqualOrUnset(newHash, names::nothing)) {
      if (IsCrashPadEnabled()) MarkSessionAsCrash();
      return Pass::nothing;
    }
    ProcessWide().isAppleReportAvailable = true;
  } else {
    LogInfo("Searching for Crash logs");
    switch (SearchCrashLog()) {
      case 0:
        LogInfo("Crash log not found");
        return Pass::again;
      case 1:
        return Pass::nothing;
      default:
        if (ProcessWide().isAppleReportAvailable) break;
        LogError("Apple Report not available, Wait for Apple crash dialog");
        WaitForAppleCrashDialog();
    }
  }
  if (IsReportAvailableToBeProcessed()) return Pass::report;
  lastNumberOfProcesses = currentNumberOfProcesses;
  platform::SleepFor(pass);
  return Pass::again;
}

void MyDaemon::HandOver(ScopedIngester& ingester) {
  LogInfo("Crash report available");
  MarkSessionAsCrash();
  setStoredCrash(newHash);
  SetCrashPathFromNewHash();
  SetSkylanceSessionId();
  removeFile(glimmerLogPath.Get());
  ingester->setSessionGuid(SessionGuid());
  ingester->submitReport(crashPath.Get().value_or(""), ProcessWide().isCRGeneratedReport);

  if (!shouldInitMCRApp()) {
    LogError(
        "Malvex Crash Reporter App will not be launched as either a. user is throttled Or b. always never send is set  "
        "to '2' in preference Or c. MalvexCrashReporterSendWithoutPrompt Or d. Signal dialog is disabled");
    return Finish();
  }
  if (isCRDisabled()) {
    LogInfo("MalvexCrashReporterSendWithoutPrompt is overriding always_never_send set in CR preference");
  }
  parentExitCode = std::to_string(exitStatus);
  LogInfo("Parent app exit code:" + *parentExitCode);
  if (crashPadDumpFile == "") {
    LogInfo("No crash dump file, removing CRashDump directory");
    removeCrashPadDumpDirectory();
  }
  LaunchMalvexCrashReporterApp();
  EndRunLoop();
  ReleaseWindowDictionary();
}

void MyDaemon::Finish() {
  ClearCrashAndTempFiles();
  EndRunLoop();
  ReleaseWindowDictionary();
}
