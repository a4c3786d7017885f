#include "platform/linux/HostExit.h"

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>

#include "platform/Processes.h"
#include "platform/linux/ProcessTable.h"

namespace platform {
namespace {

// Most parents reap at once; the others' zombies can be looked at.
constexpr int reapPatienceMilliseconds = 100;

// Of <linux/pidfd.h>, for building with older ones.
struct PidfdInfo {
  std::uint64_t mask;
  std::uint64_t unused[6];
  std::uint32_t unusedToo;
  std::int32_t exitCode;
};
static_assert(sizeof(PidfdInfo) == 64, "the size of the structure is part of the call");
constexpr std::uint64_t pidfdInfoExit = std::uint64_t{1} << 3U;
constexpr unsigned long pidfdGetInfo = _IOWR(0xFF, 11, PidfdInfo);

short EventsOf(int descriptor, short events, int timeoutMilliseconds) {
  pollfd input{descriptor, events, 0};
  int count = 0;
  do {
    count = poll(&input, 1, timeoutMilliseconds);
  } while (count < 0 && errno == EINTR);
  return count > 0 ? input.revents : short{0};
}

bool Has(short events, short wanted) { return (events & wanted) != 0; }

// Of a status as wait() gives it.
std::int64_t ExitCodeOrSignal(int status) { return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status); }

// Where no pidfd is to be had.
bool Exists(std::int32_t processId) {
  if (getpgid(processId) < 0) return false;
  const auto entry = ReadProcess(processId);
  return !entry || !entry->isGone;
}

std::optional<std::int64_t> StatusOfReaped(int process) {
  PidfdInfo info{};
  info.mask = pidfdInfoExit;
  if (ioctl(process, pidfdGetInfo, &info) != 0 || (info.mask & pidfdInfoExit) == 0) return std::nullopt;
  return ExitCodeOrSignal(info.exitCode);
}

}  // namespace

void HostExit::Watch(std::int32_t processId) {
  id_ = processId;
  endSeen_ = 0;
  if (processId < 1) return NoteEnd();
  process_ = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, processId, 0)));
  wasGone_ = !process_ && errno == ESRCH;
  if (process_) stage_ = Stage::living;
  if (wasGone_) NoteEnd();
}

bool HostExit::Lives(std::int32_t processId) {
  const bool lives = processId == id_ && process_
                         ? !Has(EventsOf(process_.Number(), POLLIN, 0), POLLIN)
                         : processId > 0 && !(processId == id_ && wasGone_) && Exists(processId);
  if (!lives && processId == id_) NoteEnd();
  return lives;
}

std::optional<std::chrono::nanoseconds> HostExit::EndSeen() const {
  const std::chrono::nanoseconds seen(endSeen_);
  return seen.count() == 0 ? std::nullopt : std::optional(seen);
}

void HostExit::NoteEnd() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  std::chrono::nanoseconds::rep notYet = 0;
  const std::chrono::nanoseconds seen = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  endSeen_.compare_exchange_strong(notYet, seen.count());
}

pollfd HostExit::Input() const {
  if (stage_ == Stage::living) return {process_.Number(), POLLIN, 0};
  // Asking for POLLIN would spin: a zombie stays readable. POLLHUP comes unasked.
  if (stage_ == Stage::unreaped) return {process_.Number(), 0, 0};
  return {-1, 0, 0};
}

std::optional<std::int64_t> HostExit::TakeStatus(short events) {
  if (stage_ != Stage::living && stage_ != Stage::unreaped) return std::nullopt;
  NoteEnd();
  if (!Has(events, POLLHUP)) events = EventsOf(process_.Number(), 0, reapPatienceMilliseconds);
  std::optional<std::int64_t> status;
  if (!Has(events, POLLHUP)) {
    const auto entry = ReadProcess(id_);
    if (entry && entry->exitStatus) status = ExitCodeOrSignal(*entry->exitStatus);
    events = EventsOf(process_.Number(), 0, 0);  // it may have been reaped before that look
  }
  const bool isReaped = Has(events, POLLHUP);
  if (isReaped && !status) status = StatusOfReaped(process_.Number());
  stage_ = isReaped || status ? Stage::over : Stage::unreaped;
  return status;
}

HostExit& WatchedHost() {
  static HostExit host;
  return host;
}

void WatchHost(std::int32_t processId) { WatchedHost().Watch(processId); }

bool HostLives(std::int32_t processId) { return WatchedHost().Lives(processId); }

}  // namespace platform
