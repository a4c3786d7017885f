#include "CRDaemon/Ingester.h"

#include <cstddef>
#include <exception>
#include <map>
#include <utility>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/ProcessValues.h"
#include "support/AtomicFile.h"
#include "support/FixedNames.h"
#include "support/Guid.h"
#include "support/Log.h"
#include "support/Paths.h"

namespace {

// The boundary that no exception of the outbox crosses.
template <typename Operation>
void LogUncaught(const char* name, Operation operation, CodePlace place = {__builtin_FILE(), __builtin_LINE()}) {
  const std::string message = std::string("uncaught exception in ") + name + ": ";
  try {
    operation();
  } catch (const std::exception& exception) {
    LogError(message + exception.what(), place);
  } catch (...) {
    LogError(message + "unknown", place);
  }
}

// Keeps the queue within its bound. The event just queued stays, whatever its date: a clock may have been put back.
void DeleteOldestEvents(const std::string& newest) {
  std::vector<std::string> events;
  Ingester::forEachFileAtPath(ProcessWide().REPORTS_DIR, [&](const std::string& path) {
    if (path != newest && Ingester::shouldProcessReport(path)) events.push_back(path);
    return true;
  });
  if (events.size() < Ingester::mostEvents) return;
  const std::size_t surplus = events.size() + 1 - Ingester::mostEvents;
  std::multimap<platform::Time, std::string> byDate;
  for (const std::string& path : events) {
    if (const auto created = platform::CreationDate(path)) byDate.emplace(*created, path);
  }
  LogError("the queue is full: its oldest events are deleted, " + std::to_string(surplus) + " in all");
  std::size_t deleted = 0;
  for (auto oldest = byDate.begin(); oldest != byDate.end() && deleted < surplus; ++oldest, ++deleted) {
    deleteFile(oldest->second);
  }
}

// The path of the event's file; none when it could not be written. A folder that could not be synced gives an error
// line, but is no reason to post the event from memory too.
std::optional<std::string> QueueEvent(const platform::Dictionary& event) {
  const std::string folder = ProcessWide().REPORTS_DIR;
  if (platform::KindOf(folder) == platform::FileKind::absent) {
    if (const std::error_code error = platform::MakeFolders(folder)) {
      LogError("failed to create path: " + folder + " with error: " + error.message());
    }
  }
  const std::string path = paths::Join(folder, Ingester::getUniqueFileName());
  const platform::Result<std::string> xml = platform::WritePropertyList(platform::Value(event));
  const std::error_code error = xml ? WriteNew(path, *xml) : xml.Error();
  if (error) LogError("failed to write event: " + path + " with error: " + error.message());
  LogInfo("saved report to path: " + path);
  if (error && platform::KindOf(path) != platform::FileKind::regular) return std::nullopt;
  DeleteOldestEvents(path);
  return path;
}

}  // namespace

// That the host crashed is worth knowing, whatever became of its report.
platform::Dictionary EventOfReport(const std::string& path, const std::string& type, const conversion::Sender& sender) {
  conversion::Converter converter(type, sender);
  const bool isWhole = ReadReportPieces(path, [&converter](std::string_view piece) { converter.Feed(piece); });
  return isWhole ? converter.Finish() : conversion::EventFromReport("", type, sender);
}

// Its exceptions are reported under the name of `start`.
Ingester::Ingester(const std::string& appName, const std::string& appVersion, const std::string& crashReporterVersion,
                   const std::string& sessionGuid, const std::string& userGuid) {
  LogUncaught("start", [&] {
    LogInfo("init app:" + appName + "_" + appVersion);
    sender_ = {.appName = conversion::trimWhiteSpaces(appName),
               .appVersion = conversion::trimWhiteSpaces(appVersion),
               .crashReporterVersion = conversion::trimWhiteSpaces(crashReporterVersion),
               .sessionGuid = conversion::trimWhiteSpaces(sessionGuid),
               .userGuid = conversion::trimWhiteSpaces(userGuid)};
  });
}

void Ingester::start() {
  LogUncaught("start", [&] {
    LogInfo("start");
    asyncGroup_.emplace();
    runOnce();
  });
}

void Ingester::setSessionGuid(const std::string& guid) {
  LogUncaught("setSessionGuid", [&] {
    LogInfo("setSessionGuid:" + guid);
    sender_.sessionGuid = conversion::trimWhiteSpaces(guid);
  });
}

void Ingester::runOnce() { Schedule({}); }

// An event that is in no file comes first: a run that ends early leaves all others for a later one.
void Ingester::Schedule(std::optional<SavedEvent> saved) {
  LogInfo("runOnce");
  asyncGroup_->Async([saved = std::move(saved)] {
    LogUncaught("runOnce block", [&saved] {
      UploadRun run{.http = upload::ServiceClient()};
      if (saved) run.own = saved->path.value_or("");
      cleanupExpiredFiles(run);
      const bool isLeft = saved && !saved->path && !postToIngest(saved->event, run);
      processReports(run);
      if (isLeft) static_cast<void>(QueueEvent(saved->event));
    });
  });
}

void Ingester::submitReport(const std::string& path, const std::string& type) {
  LogUncaught("submitReport", [&] { Schedule(saveReport(path, type)); });
}

void Ingester::stop() {
  LogUncaught("stop", [&] {
    LogInfo("stop");
    if (asyncGroup_) asyncGroup_->Wait();
    LogInfo("stopped");
  });
}

std::string Ingester::getUniqueFileName() {
  return std::string(names::eventFilePrefix) + "_" + NewGuid() + "." + names::eventFileSuffix;
}

Ingester::SavedEvent Ingester::saveReport(const std::string& path, const std::string& type) {
  LogInfo("save report from path: " + path);
  platform::Dictionary event = EventOfReport(path, type, sender_);
  auto file = QueueEvent(event);
  return {std::move(event), std::move(file)};
}
