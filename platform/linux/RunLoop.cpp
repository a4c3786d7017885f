#include "platform/RunLoop.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/linux/HostExit.h"
#include "platform/linux/SessionBus.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/Memory.h"
#include "platform/posix/Signals.h"

namespace platform {
namespace {

using UserInfo = std::map<std::string, std::string>;
using Clock = BusConnection::Clock;

constexpr int longWaitMilliseconds = 1000;

// Interrupts a poll from any thread.
class Alarm {
 public:
  Alarm() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  [[nodiscard]] pollfd Input() const { return {event_.Number(), POLLIN, 0}; }
  // Whether there is one; without, the loop must look around by itself.
  [[nodiscard]] bool Works() const { return static_cast<bool>(event_); }
  void Ring() const noexcept { static_cast<void>(eventfd_write(event_.Number(), 1)); }
  void Reset() const {
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(event_.Number(), &count));
  }

 private:
  Descriptor event_;
};

// All handlers run on the main thread, in Wait.
class Loop {
 public:
  // Only the main thread takes the signal.
  void BeginTakingTermination(void (*wake)()) {
    if (!std::exchange(takesTermination_, true)) CatchTermination(wake);
  }
  void Observe(TerminationHandler handler) { terminationHandlers_.push_back(std::move(handler)); }
  void Observe(std::optional<std::string> name, DistributedHandler handler) {
    distributedHandlers_.emplace_back(std::move(name), std::move(handler));
  }

  bool Wait();

  void Wake() noexcept {
    isWoken_ = true;
    alarm_.Ring();
  }
  void WorkerReturned() noexcept {
    hasWorkerReturned_ = true;
    alarm_.Ring();
  }
  // Async-signal-safe.
  void Ring() const noexcept { alarm_.Ring(); }
  void StopDelivery() {
    const std::lock_guard lock(delivery_);
    isStopped_ = true;
  }

 private:
  void AwaitInput();
  void RunIfDue(BusConnection& bus, const pollfd& input);
  [[nodiscard]] int PollMilliseconds() const;
  void DeliverEnd(std::int64_t exitStatus);
  void DeliverNotification(const std::string& name, const UserInfo& userInfo);

  std::vector<TerminationHandler> terminationHandlers_;
  std::vector<std::pair<std::optional<std::string>, DistributedHandler>> distributedHandlers_;
  Alarm alarm_;
  SessionBus session_{
      [this](const std::string& name, const UserInfo& userInfo) { DeliverNotification(name, userInfo); }};
  LoginBus login_{[this](const std::string& name, const UserInfo& userInfo) { DeliverNotification(name, userInfo); }};
  bool hasDelivered_ = false;
  bool takesTermination_ = false;
  bool hasDeliveredTermination_ = false;
  std::atomic<bool> isWoken_ = false;
  std::atomic<bool> hasWorkerReturned_ = false;
  std::mutex delivery_;
  bool isStopped_ = false;
};

bool Loop::Wait() {
  hasDelivered_ = false;
  while (!hasDelivered_) {
    if (isWoken_.exchange(false)) return true;
    if (hasWorkerReturned_ && WatchedHost().IsOver()) return false;
    if (TerminationRequest() && !std::exchange(hasDeliveredTermination_, true)) {
      // The user's session ends, and this process with it.
      DeliverNotification(logoutName, {});
      continue;
    }
    AwaitInput();
  }
  return true;
}

void Loop::AwaitInput() {
  enum Source : std::size_t { alarm, host, session, login };
  std::array<pollfd, 4> inputs = {alarm_.Input(), WatchedHost().Input(), session_.Connection().Input(),
                                  login_.Connection().Input()};
  const int milliseconds = PollMilliseconds();
  if (milliseconds < 0 || milliseconds > longWaitMilliseconds) ReleaseUnusedMemory();
  if (poll(inputs.data(), inputs.size(), milliseconds) < 0) return;
  if (inputs[alarm].revents != 0) alarm_.Reset();
  if (inputs[host].revents != 0) {
    if (const auto status = WatchedHost().TakeStatus(inputs[host].revents)) DeliverEnd(*status);
  }
  RunIfDue(session_.Connection(), inputs[session]);
  RunIfDue(login_.Connection(), inputs[login]);
}

void Loop::RunIfDue(BusConnection& bus, const pollfd& input) {
  const auto deadline = bus.Deadline();
  if (input.revents != 0 || (deadline && *deadline <= Clock::now())) bus.Run();
}

int Loop::PollMilliseconds() const {
  constexpr int lookAround = 1000;
  constexpr int forever = -1;
  std::optional<Clock::time_point> first;
  for (const auto& deadline : {session_.Connection().Deadline(), login_.Connection().Deadline()}) {
    if (deadline && (!first || *deadline < *first)) first = deadline;
  }
  if (!first) return alarm_.Works() ? forever : lookAround;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now()).count();
  const int longest = alarm_.Works() ? std::numeric_limits<int>::max() : lookAround;
  return static_cast<int>(std::clamp<std::int64_t>(wait, 0, longest));
}

void Loop::DeliverEnd(std::int64_t exitStatus) {
  const std::lock_guard lock(delivery_);
  hasDelivered_ = true;
  if (isStopped_) return;
  for (const auto& handler : terminationHandlers_) handler(std::to_string(WatchedHost().Id()), exitStatus);
}

void Loop::DeliverNotification(const std::string& name, const UserInfo& userInfo) {
  const std::lock_guard lock(delivery_);
  hasDelivered_ = true;
  if (isStopped_) return;
  for (const auto& [wanted, handler] : distributedHandlers_) {
    if (!wanted || *wanted == name) handler(name, userInfo);
  }
}

Loop& MainLoop() {
  static Loop loop;
  return loop;
}

}  // namespace

void ObserveTermination(TerminationHandler handler) { MainLoop().Observe(std::move(handler)); }

void ObserveDistributed(std::optional<std::string> name, DistributedHandler handler) {
  MainLoop().Observe(std::move(name), std::move(handler));
}

bool WaitForInput() {
  MainLoop().BeginTakingTermination([] { MainLoop().Ring(); });
  return MainLoop().Wait();
}

void WakeRunLoop() noexcept { MainLoop().Wake(); }

void WorkerReturned() noexcept { MainLoop().WorkerReturned(); }

void StopDelivery() { MainLoop().StopDelivery(); }

}  // namespace platform
