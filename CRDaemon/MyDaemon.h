#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CRDaemon/SharedText.h"
#include "platform/Clock.h"
#include "platform/Windows.h"

class ScopedIngester;

// The daemon: one record of all it knows about the host and this run, and the operations that move it from phase to
// phase. The fields are public by intent; the worker owns all of them, except the atomics, which the notification
// handlers set, and the shared texts, which a handler may read. Unset and empty are two things.
class MyDaemon {
 public:
  using Text = std::optional<std::string>;

  MyDaemon() = default;
  MyDaemon(const MyDaemon&) = delete;
  MyDaemon& operator=(const MyDaemon&) = delete;
  // No handler runs afterwards.
  ~MyDaemon();

  // --- The record, in its fixed order. "Element" is one of the process's arguments.
  Text processId;  // element 1: decimal, compared as text
  Text appName;
  Text appVersion;
  Text malvexProductVersion;
  Text malvexProductBuild;
  Text appPath;
  Text iconPath;
  SharedText crashPath;  // the artefact that is reported
  Text crPath;           // the crash reporter's executable
  Text initValue;        // integer 1: send without prompt
  bool problemReporterFound = false;
  bool problemReporterDied = false;
  std::map<std::string, std::string> windowDictionary;  // window number -> passes in which it was seen, "1" to "3"
  std::atomic<bool> endTask = false;
  std::atomic<bool> terminateNotified = false;
  std::atomic<std::int64_t> exitStatus = 0;
  std::atomic<bool> endRunLoop = false;
  SharedText crashLogPath;  // where the host's own signal report is expected
  std::atomic<std::uint8_t> isExceptionDelivered = 0;
  SharedText glimmerLogPath;   // the analytics session file of the host
  Text showCRDialogForSignal;  // "1": show the reporter also after a signal
  std::int32_t lastNumberOfProcesses = 0;
  std::int32_t currentNumberOfProcesses = 0;
  std::int32_t appleDialogGoDownCount = 0;   // passes
  std::int32_t crashLogCreateWaitTime = 0;   // passes
  std::int32_t daemonWaitTimeInSeconds = 0;  // how many passes to wait for a report
  Text newHash;                              // name of the newest report, "-1" when there is none
  Text initialHash;                          // name of the report that an earlier run handled
  Text windowId;
  std::uint8_t foundWindow = 0;
  bool isWindowExist = false;
  Text skylanceProductFamily;
  Text skylanceProductName;
  Text browserAppName;
  Text browserAppVersion;
  Text browserAppBuild;
  Text binaryImageName;
  Text defaultDescription;
  Text crashDialogDisplayName;
  Text showOnlyOnce;
  Text scalingFactor;
  Text crDialogOptions;
  Text crDialogEmail;
  Text crashReporterVersion;
  Text isAppLaunchedFromLaunchd;  // "1": exit status 0 is a normal exit
  Text skylanceSessionID;         // prefix and session id, or the prefix alone
  Text parentExitCode;
  Text hostname;
  Text currentDate;  // yyyy-MM-dd, of the daemon's start
  Text crashPadDumpFile;
  Text isDumpAttached;  // "Yes" or "No"
  SharedText crashPadDumpDirectory;
  Text acctUserGUID;
  Text codeType;
  bool logCrashingModulePreference = false;
  Text sessionLicenseTypeVal;
  bool isSignalHandlingEnabled = false;

  // The stored crash as this run last set it: serves while the preferences file cannot.
  Text ownStoredCrash;

  // --- MyDaemon.cpp: start-up. Main thread.
  // Runs the daemon: returns when the run loop has ended and the worker is done.
  void initialize();
  void initProcessId();
  void initParameters();
  [[nodiscard]] std::int16_t GetOSVersionMajor() const;
  [[nodiscard]] std::int16_t GetOSVersionMinor() const;
  [[nodiscard]] static std::int16_t BCDToDecimal(std::int32_t value);

  // --- LaunchArguments.cpp
  // False for fewer than 24 elements; throws std::out_of_range for 24 to 30.
  [[nodiscard]] bool FetchDaemonArguments();
  void initVariables();

  // --- HostWatch.cpp: how the host ended.
  // Main thread: registers the observers and runs the run loop to its end.
  void listenForTerminateNotifications();
  [[nodiscard]] std::int32_t getProcessesCount();
  [[nodiscard]] bool IsNormalExit() const;
  [[nodiscard]] bool IsCRHandledSignal() const;
  void SetIsSignalFlagBasedOnExiStatus();
  [[nodiscard]] bool canBeASignalCase() const;
  // Any thread.
  void EndRunLoop();
  [[nodiscard]] bool IsExceptionDeliveredSuccessfully() const;

  // --- CrashWaitLoop.cpp
  // The worker's whole life.
  void waitForCrash();

  // --- DiagnosticReportScan.cpp
  // The names found so far travel from folder to folder; a name is replaced only by a file of its kind.
  struct FoundReports {
    std::string crashFileApple;
    std::string crashFileCR;
    std::string hangFileApple;
  };
  [[nodiscard]] Text readDiagnosticReports(const std::string& folder, const std::string& application,
                                           FoundReports& found);
  // The report to use, "-1" when there is none.
  [[nodiscard]] std::string getDiagnosticReports();
  [[nodiscard]] static bool IsAppleFileLocked(const std::string& path);
  [[nodiscard]] static bool IsFileOlderThanNMinutes(const std::string& path, std::int32_t minutes);
  [[nodiscard]] static bool IsFileOlderThanDate(const std::string& path, platform::Time date);
  void CleanupDiagnostics(const std::string& folder);
  // Removes regular files with such names that are older than a stale report.
  static void RemoveStale(const std::string& folder, const std::string& prefix, std::string_view suffix);
  // 0: no report yet, 1: give up, 2: there is a new report.
  [[nodiscard]] int SearchCrashLog();
  [[nodiscard]] bool IsReportAvailableToBeProcessed() const;

  // --- SystemCrashDialog.cpp
  // Empty without a window server.
  [[nodiscard]] static std::vector<platform::Window> getCGWindowListCopyWindowInfo();
  // Once a pass while the host lives: which dialogs were there before.
  void PopulateDictionaryWithWindows();
  // The number of the new dialog, "-1" when more than one could be it. Unset: there is none.
  [[nodiscard]] Text GetCrashWindowId();
  // True for no number.
  [[nodiscard]] static bool GetWindowExists(const Text& number);
  // Takes up to 30 seconds the first time, none later.
  void WaitForAppleCrashDialog();
  void ReleaseWindowDictionary();

  // --- CrashpadDump.cpp
  void SetCrashPadDumpFile();
  void GetDumpFileFromDumpDirectory();
  [[nodiscard]] static bool IsFileCreatedBeforDaemonInit(const std::string& path);
  [[nodiscard]] bool IsCrashPadEnabled() const;
  [[nodiscard]] bool isDumpDirectoryAvailable() const;
  // Any thread. Only the folder of this run, below the folder of all dumps; an error line for any other.
  void removeCrashPadDumpDirectory();

  // --- HangReport.cpp
  // Brings the hang report named by `additionalHangFile` into the user's folder and makes that its full path.
  [[nodiscard]] bool setAdditionalHangFilePath();
  // 0 after one more step of waiting, 5 when there is nothing to wait for.
  [[nodiscard]] int WaitForHangFileCreation();

  // --- CrashFiles.cpp
  [[nodiscard]] std::string getLatestHash();
  void SetSignalReportPath();
  void SetCrashPathFromNewHash();
  static void removeFile(const Text& path);
  void removeAdditionalDataFile();
  // What killed daemons left of files in the making.
  void RemoveUnfinishedFiles() const;
  // Any thread.
  void ClearCrashAndTempFiles();

  // --- CrashedModuleLog.cpp
  // Writes CrashModule.txt, which the host reads at its next start.
  void LogCrashedModuleInfo(const std::string& reportName);

  // --- DialogPolicy.cpp
  [[nodiscard]] bool shouldSignalDialogBeShown() const;
  [[nodiscard]] bool shouldInitMCRApp() const;

  // --- ReporterLaunch.cpp
  [[nodiscard]] bool isBrowserApp() const;
  void LaunchMalvexCrashReporterApp();
  void LaunchMCRAppForNonBrowserApp();
  void LaunchMCRAppForBrowserApp();

  // --- StoredCrash.cpp
  [[nodiscard]] static std::string GetNewGuid();
  [[nodiscard]] std::string GetUserGuid();
  [[nodiscard]] Text getStoredCrash() const;
  void setStoredCrash(const Text& report);

  // --- SessionLink.cpp
  void SetSkylanceSessionId();
  // What follows the prefix in the session record.
  [[nodiscard]] std::string SessionGuid() const;
  void MarkSessionAsCrash();

 private:
  enum class Pass { again, nothing, report };
  struct Watch;

  [[nodiscard]] bool BeginWatch();
  void CleanUpDiagnosticFolders();
  [[nodiscard]] bool WaitForHostEnd();
  [[nodiscard]] Pass DecideOnePass(Watch& watch);
  [[nodiscard]] Pass WaitForAnnouncement(Watch& watch);
  void LogNewCrashedModule(Watch& watch);
  [[nodiscard]] Pass AwaitReport();
  void HandOver(ScopedIngester& ingester);
  void Finish();

  [[nodiscard]] std::int32_t HostId() const;
  [[nodiscard]] std::vector<Text> ReporterArguments(const Text& name, const Text& version) const;
  [[nodiscard]] std::string ChooseReport(const FoundReports& found);
  // The path of `name` in `folder`; none, and an error line, when the name would lead elsewhere.
  [[nodiscard]] static Text FileOfThisRun(const std::string& folder, const std::string& name);
  [[nodiscard]] std::string StoredCrashKey() const;
};

// Starts `executable` with the arguments up to the first unset one and brings it to the front. 0: started, 1: not.
[[nodiscard]] int LaunchTask(const std::string& executable, const std::vector<std::optional<std::string>>& arguments);
