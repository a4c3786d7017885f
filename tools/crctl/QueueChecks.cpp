#include <algorithm>
#include <optional>

#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Diagnosis.h"
#include "support/FixedNames.h"
#include "support/Paths.h"
#include "tools/crctl/Answer.h"
#include "tools/crctl/Checks.h"
#include "tools/crctl/QueueFolder.h"

namespace crctl {
namespace {

constexpr std::chrono::hours longWait{1};
constexpr std::chrono::hours tooLongWait{24};
// A post ends after 130 s at the latest.
constexpr std::chrono::seconds longestPost{130};

std::chrono::seconds AgeOf(const std::string& path) {
  const auto created = platform::CreationDate(path);
  return created ? std::chrono::duration_cast<std::chrono::seconds>(platform::Now() - *created)
                 : std::chrono::seconds(0);
}

// Why the daemon will never read it; none when it will.
std::optional<std::string> ObstacleOf(const std::string& eventPath) {
  const auto bytes = platform::ReadFile(eventPath, platform::smallFileLimitBytes);
  if (bytes || bytes.Error() == std::errc::no_such_file_or_directory) return std::nullopt;
  return paths::LastComponent(eventPath) + ": " + bytes.Error().message();
}

Finding CheckEvents(const std::vector<std::string>& events) {
  std::chrono::seconds oldest{0};
  for (const std::string& path : events) {
    if (const auto obstacle = ObstacleOf(path)) {
      return {"queue", State::error, *obstacle, "move it out of " + ProcessWide().REPORTS_DIR};
    }
    oldest = std::max(oldest, AgeOf(path));
  }
  if (events.empty()) return {"queue", State::ok, "empty", ""};
  const State state = JudgeAge(oldest);
  return {"queue", state, Count(events.size(), "event") + ", the oldest of " + Duration(oldest) + " ago",
          state == State::ok ? "" : "crctl queue post says why; after 30 days an event expires"};
}

Finding CheckOneLock(const std::string& path) {
  const std::string name = paths::LastComponent(path);
  if (const auto holder = platform::LockHolder(path)) {
    const std::string seen = name + " is held by process " + std::to_string(*holder);
    const State state = JudgeHeldLock(AgeOf(path));
    return {"lock-files", state, seen, state == State::ok ? "" : "end that process: it posts no more"};
  }
  const auto access = platform::AccessOf(path);
  if (platform::KindOf(path) != platform::FileKind::regular ||
      (access && !(access->isReadable && access->isWritable))) {
    return {"lock-files", State::error, name + " cannot be locked: its event is never posted", "remove " + path};
  }
  return {"lock-files", State::ok, name + " was left behind, and is taken over", ""};
}

// The worst of them speaks for all.
Finding CheckLocks(const std::vector<std::string>& locks) {
  Finding worst{"lock-files", State::ok, "none", ""};
  for (const std::string& path : locks) {
    Finding one = CheckOneLock(path);
    if (one.state >= worst.state) worst = std::move(one);
  }
  return worst;
}

}  // namespace

State JudgeAge(std::chrono::seconds ageOfTheOldestEvent) {
  if (ageOfTheOldestEvent >= tooLongWait) return State::error;
  return ageOfTheOldestEvent >= longWait ? State::warning : State::ok;
}

State JudgeHeldLock(std::chrono::seconds age) { return age > longestPost ? State::error : State::ok; }

Findings CheckQueue() {
  if (platform::KindOf(ProcessWide().REPORTS_DIR) != platform::FileKind::folder) return {};
  return {CheckEvents(EventPaths()), CheckLocks(LockPaths())};
}

}  // namespace crctl
