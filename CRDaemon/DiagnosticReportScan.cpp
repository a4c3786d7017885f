#include <string>
#include <system_error>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

constexpr std::int32_t minutesOfStaleReport = 12;
constexpr std::chrono::seconds pass{1};

bool IsName(const MyDaemon::Text& name) { return name && *name != names::nothing; }

}  // namespace

// What costs nothing is tested first: in a folder of many files a pass is little more than reading their names.
MyDaemon::Text MyDaemon::readDiagnosticReports(const std::string& folder, const std::string& application,
                                               FoundReports& found) {
  auto entries = platform::Folder::Open(folder);
  if (entries.Error() == std::errc::no_such_file_or_directory && !platform::MakeFolders(folder)) {
    entries = platform::Folder::Open(folder);
  }
  if (!entries) {
    if (entries.Error() == std::errc::not_a_directory) LogRefused(folder, entries.Error().message());
    LogIfRefused(folder, entries.Error());
    return std::nullopt;
  }

  const std::string crashExtension = reports::CrashExtension();
  const std::string id = processId.value_or("");
  for (std::string name; entries->Next(name);) {
    if (!reports::IsCandidateName(name, application)) continue;
    const auto kind = reports::KindOfReport(name, crashExtension, id);
    if (!kind || reports::IsEarlier(entries->CreationDate(name), ProcessWide().startDate)) continue;
    const auto report = AcceptReportText(paths::Join(folder, name), entries->Read(name, platform::reportLimitBytes));
    if (!report || !reports::NamesProcess(*report, id)) continue;

    switch (*kind) {
      case reports::ReportKind::systemCrash:
        found.crashFileApple = name;
        return name;
      case reports::ReportKind::hostSignal:
        found.crashFileCR = name;
        if (!found.hangFileApple.empty()) return name;
        break;
      case reports::ReportKind::hang:
        found.hangFileApple = name;
        if (!found.crashFileCR.empty()) return name;
    }
  }
  return std::nullopt;
}

std::string MyDaemon::getDiagnosticReports() {
  FoundReports found;
  const std::string application = appName.value_or("");
  const auto finds = [&](const std::string& folder) {
    return IsName(readDiagnosticReports(folder, application, found));
  };
  // A find in the system folder does not end the search: the folder for new hardware may replace it.
  if (!finds(GetUserDiagnosticPath())) {
    if (finds(systemReports) || !finds(GetUserDiagnosticPathForNewHardware())) finds(systemReportsForNewHardware);
  }
  std::string report = ChooseReport(found);
  if (canBeASignalCase() && ProcessWide().isCRGeneratedReport != "0") ProcessWide().isSignal = true;
  return report;
}

std::string MyDaemon::ChooseReport(const FoundReports& found) {
  ProcessValues& process = ProcessWide();
  if (!found.crashFileApple.empty()) {
    process.isCRGeneratedReport = "0";
    // The system's report supersedes the host's own.
    if (!found.crashFileCR.empty()) removeFile(UserReportPath(found.crashFileCR));
    if (!CopyCrashFileToUserLibrary(found.crashFileApple)) return names::nothing;
    if (!IsAppleFileLocked(UserReportPath(found.crashFileApple))) process.isAppleReportAvailable = true;
    return found.crashFileApple;
  }
  if (!canBeASignalCase()) return names::nothing;
  if (!found.crashFileCR.empty() && !found.hangFileApple.empty()) {
    process.isCRGeneratedReport = "3";
    process.additionalHangFile = found.hangFileApple;
    return setAdditionalHangFilePath() ? found.crashFileCR : names::nothing;
  }
  if (!found.crashFileCR.empty()) {
    process.isCRGeneratedReport = "1";
    return found.crashFileCR;
  }
  if (!found.hangFileApple.empty()) {
    process.isCRGeneratedReport = "2";
    return CopyCrashFileToUserLibrary(found.hangFileApple) ? found.hangFileApple : names::nothing;
  }
  return names::nothing;
}

bool MyDaemon::IsAppleFileLocked(const std::string& path) { return platform::IsImmutable(path); }

bool MyDaemon::IsFileOlderThanNMinutes(const std::string& path, std::int32_t minutes) {
  return IsFileOlderThanDate(path, reports::MinutesBefore(platform::Now(), minutes));
}

bool MyDaemon::IsFileOlderThanDate(const std::string& path, platform::Time date) {
  return reports::IsEarlier(platform::CreationDate(path), date);
}

void MyDaemon::CleanupDiagnostics(const std::string& folder) {
  if (appName && !appName->empty()) RemoveStale(folder, *appName + "_", "");
}

void MyDaemon::RemoveStale(const std::string& folder, const std::string& prefix, std::string_view suffix) {
  auto entries = platform::Folder::Open(folder);
  if (!entries) return;
  while (auto name = entries->Next()) {
    if (!name->starts_with(prefix) || !name->ends_with(suffix)) continue;
    const std::string path = paths::Join(folder, *name);
    if (!IsFileOlderThanNMinutes(path, minutesOfStaleReport)) continue;
    if (entries->KindOf(*name) == platform::FileKind::regular) platform::RemoveFile(path);
  }
}

int MyDaemon::SearchCrashLog() {
  constexpr int keepWaiting = 0;
  constexpr int giveUp = 1;
  constexpr int newReport = 2;
  if (!text::EqualOrUnset(newHash, names::nothing) && !text::EqualOrUnset(initialHash, newHash)) return newReport;

  if (ProcessWide().isSignal) {
    if (crashLogCreateWaitTime > 1) {
      LogError("Signal report is not created, CR dialog will not appear");
      return giveUp;
    }
  } else {
    if (appleDialogGoDownCount >= daemonWaitTimeInSeconds) return giveUp;
    lastNumberOfProcesses = currentNumberOfProcesses;
  }
  platform::SleepFor(pass);
  return keepWaiting;
}

bool MyDaemon::IsReportAvailableToBeProcessed() const {
  const bool dialogIsGone = !isWindowExist && windowId && !problemReporterFound;
  const bool reportingEnded = currentNumberOfProcesses < lastNumberOfProcesses && !problemReporterFound;
  const bool waitedEnough = appleDialogGoDownCount > daemonWaitTimeInSeconds;
  return dialogIsGone || reportingEnded || waitedEnough || problemReporterDied || ProcessWide().isSignal ||
         ProcessWide().isAppleReportAvailable;
}
