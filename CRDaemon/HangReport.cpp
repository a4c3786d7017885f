#include <string>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Clock.h"
#include "support/AtomicFile.h"
#include "support/FileSystemUtils.h"
#include "support/Log.h"
#include "support/Paths.h"

namespace {

constexpr std::chrono::seconds waitForHangReport{2};
constexpr std::int32_t lastWait = 2;  // of waits counted from 0
constexpr int waited = 0;
constexpr int nothingToWaitFor = 5;

// Without its hang report the host's signal report stands alone.
bool DropHangReport(const std::string& message) {
  LogInfo(message);
  ProcessWide().additionalHangFile = "";
  ProcessWide().isCRGeneratedReport = "1";
  return false;
}

}  // namespace

bool MyDaemon::setAdditionalHangFilePath() {
  ProcessValues& process = ProcessWide();
  const std::string name = process.additionalHangFile;
  const std::string destination = UserReportPath(name);
  const auto source =
      FirstExisting({paths::Join(systemReports, name), paths::Join(GetSystemDiagnosticPathForNewHardware(), name)});
  if (source) {
    const auto report = ReadReportText(*source);
    if (!report) return DropHangReport("Error while reading content of hang file " + *source);
    if (!FileSystemUtils::DoesPathExist(destination)) {
      const std::error_code error = WriteNew(destination, *report);
      if (error && error != std::errc::file_exists) return DropHangReport("Error while copying hang file");
    }
    process.foundHangReport = true;
  }
  process.additionalHangFile = destination;
  return true;
}

int MyDaemon::WaitForHangFileCreation() {
  ProcessValues& process = ProcessWide();
  if (!process.isSignal || process.foundHangReport || process.hangReportWaitCounter > lastWait) return nothingToWaitFor;
  platform::SleepFor(waitForHangReport);
  ++process.hangReportWaitCounter;
  return waited;
}
