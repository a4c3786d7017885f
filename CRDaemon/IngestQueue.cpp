#include <algorithm>
#include <string_view>
#include <utility>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"

namespace {

constexpr std::int32_t secondsOfDay = 86400;
constexpr std::int32_t daysOfLife = std::chrono::seconds(Ingester::lifeOfFiles).count() / secondsOfDay;
// Where many daemons meet on a long queue, all of them would be more descriptors than a process may have.
constexpr std::size_t refusedLocksKept = 16;

// Of everything in a folder; nothing when it cannot be listed to its end.
std::vector<std::string> ListPaths(const std::string& path) {
  auto folder = platform::Folder::Open(path);
  std::error_code error = folder.Error();
  std::vector<std::string> entries;
  if (folder) {
    while (const auto name = folder->Next()) entries.push_back(paths::Join(path, *name));
    error = folder->Error();
  }
  if (!error) return entries;
  LogError("failed to get contents of directory: " + path + " with error: " + error.message());
  return {};
}

bool IsFile(const std::string& path) {
  const platform::FileKind kind = platform::KindOf(path);
  return kind != platform::FileKind::absent && kind != platform::FileKind::folder;
}

platform::Dictionary Parse(std::string_view bytes) {
  platform::Result<platform::Value> root = platform::ParsePropertyList(bytes);
  auto* event = root ? std::get_if<platform::Dictionary>(&root->state()) : nullptr;
  return event == nullptr ? platform::Dictionary() : std::move(*event);
}

// Whatever goes wrong here goes wrong once more when it is that event's turn, and is told then.
void ReadAhead(UploadRun& run) noexcept {
  try {
    const auto stamp = platform::StampOf(run.next);
    if (!stamp) return;
    const auto bytes = platform::ReadFile(run.next, platform::smallFileLimitBytes);
    if (bytes) run.ahead = {{run.next, *stamp, Parse(*bytes)}};
  } catch (...) {
    run.ahead.reset();
  }
}

// What was read before its lock was held counts only if it is still the same.
std::optional<platform::Dictionary> TakeEvent(const std::string& path, UploadRun& run) {
  auto ahead = std::exchange(run.ahead, std::nullopt);
  if (ahead && ahead->path == path && ahead->stamp == platform::StampOf(path)) return std::move(ahead->event);
  return ReadEvent(path);
}

bool DeliverEvent(const std::string& path, UploadRun& run) {
  auto event = TakeEvent(path, run);
  if (!event || !postToIngest(std::move(*event), run, [&run] { ReadAhead(run); })) return false;
  deleteFile(path);
  return true;
}

bool TakeLock(const std::string& path, UploadRun& run) {
  if (run.lock && run.lock->MoveTo(path)) return true;
  run.ReleaseLock();
  platform::FileLock lock = platform::FileLock::Try(path);
  const std::string withError = paths::Shown(path) + " with error: " + std::to_string(lock.errorNumber());
  switch (lock.state()) {
    case platform::FileLock::State::notCreated:
      LogError("failed to create lock file: " + withError);
      return false;
    case platform::FileLock::State::notLocked:
      LogError("failed to lock file: " + withError);
      if (run.refusedLocks.size() < refusedLocksKept) run.refusedLocks.push_back(std::move(lock));
      return false;
    case platform::FileLock::State::held:
      break;
  }
  run.lock.emplace(std::move(lock));
  return true;
}

}  // namespace

std::optional<platform::Dictionary> ReadEvent(const std::string& path) {
  const auto bytes = platform::ReadFile(path, platform::smallFileLimitBytes);
  if (bytes) return Parse(*bytes);
  if (bytes.Error() == std::errc::permission_denied) return platform::Dictionary();
  if (bytes.Error() != std::errc::no_such_file_or_directory) {
    LogError("failed to read event: " + paths::Shown(path) + " with error: " + bytes.Error().message());
  }
  return std::nullopt;
}

void UploadRun::ReleaseLock() {
  if (lock) lock->RemoveAndRelease();
  lock.reset();
}

void deleteFile(const std::string& path) {
  if (const std::error_code error = platform::RemoveFile(path)) {
    LogError("failed to delete path: " + paths::Shown(path) + " with error: " + error.message());
  }
}

void Ingester::forEachFileAtPath(const std::string& folder, const std::function<bool(const std::string&)>& action) {
  for (const std::string& path : ListPaths(folder)) {
    if (IsFile(path) && !action(path)) return;
  }
}

bool Ingester::isFileAtPath(const std::string& path, std::int32_t days) {
  const auto created = platform::CreationDate(path);
  if (!created) {
    LogError("failed to get attributes of path: " + paths::Shown(path) + " with error: no creation date");
    return false;
  }
  return reports::IsEarlier(created, platform::Now() - std::chrono::seconds(days * secondsOfDay));
}

// Lock files too live for the full time: one of them may still be held.
bool Ingester::shouldDeleteFile(const std::string& path) { return isFileAtPath(path, daysOfLife); }

bool Ingester::shouldProcessReport(const std::string& path) {
  const std::string name = paths::LastComponent(path);
  return std::string_view(name).starts_with(names::eventFilePrefix) &&
         std::string_view(name).ends_with(names::eventFileSuffix);
}

std::string Ingester::getLockPathForReportPath(const std::string& path) {
  return path + "." + names::lockFileExtension;
}

void Ingester::cleanupExpiredFiles(const UploadRun& run) {
  forEachFileAtPath(ProcessWide().REPORTS_DIR, [&run](const std::string& path) {
    // Only regular files belong to the queue. A clock that jumped ahead must not make a new event an old one.
    if (path != run.own && platform::KindOf(path) == platform::FileKind::regular && shouldDeleteFile(path)) {
      deleteFile(path);
    }
    return true;
  });
}

// A run that met a time-out or a service in trouble leaves the rest to a later one: somebody waits for its end.
void Ingester::processReports(UploadRun& run) {
  auto paths = ListPaths(ProcessWide().REPORTS_DIR);
  std::erase_if(paths, [](const std::string& path) { return !shouldProcessReport(path); });
  if (const auto own = std::find(paths.begin(), paths.end(), run.own); own != paths.end()) {
    std::rotate(paths.begin(), own, own + 1);
  }
  for (std::size_t i = 0; i < paths.size() && run.MayPost(); ++i) {
    run.next = i + 1 < paths.size() ? paths[i + 1] : std::string();
    const bool wasRead = run.ahead && run.ahead->path == paths[i];
    if (wasRead || IsFile(paths[i])) processReport(paths[i], run);
  }
}

bool Ingester::processReport(const std::string& path, UploadRun& run) {
  const std::string shown = paths::Shown(path);
  LogInfo("process report at path: " + shown);
  if (!TakeLock(getLockPathForReportPath(path), run)) return false;
  const bool rc = DeliverEvent(path, run);
  LogInfo("processed report at path: " + shown + " with rc: " + (rc ? "1" : "0"));
  return rc;
}
