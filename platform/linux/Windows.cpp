#include "platform/Windows.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/Processes.h"
#include "platform/Tasks.h"
#include "platform/linux/HostExit.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/XDisplay.h"
#include "platform/posix/Memory.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds patience{500};
constexpr std::chrono::seconds reconnectDelay{2};
constexpr std::chrono::seconds activationPatience{10};
constexpr std::chrono::milliseconds activationPause{100};
constexpr std::chrono::milliseconds lengthOfTick{10};

// False where no thread is to be had. The process may end under the task, so the task owns all that it touches.
bool StartDetached(std::function<void()> task) {
  try {
    std::thread([task = std::move(task)]() noexcept {
      task();
      ReleaseUnusedMemory();
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

// The display, looked at on a thread of its own each time: libxcb offers no time limit on connecting, on writing, nor
// on the rest of an answer that has begun. A look that comes too late is left alone. As long as it lasts, which with a
// stopped server is until that goes on or dies, nothing is seen and nobody waits; afterwards its connection serves on.
class Screen : public std::enable_shared_from_this<Screen> {
 public:
  // None too when it is not there by the deadline.
  std::optional<std::vector<XWindow>> Look(const std::string& displayName, Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    if (isLooking_ || Clock::now() < retryAt_) return std::nullopt;
    seen_.reset();
    isLooking_ = StartDetached([self = shared_from_this(), displayName] { self->Run(displayName); });
    const bool isInTime = ended_.wait_until(lock, deadline, [this] { return !isLooking_; });
    return isInTime ? std::exchange(seen_, std::nullopt) : std::nullopt;
  }

 private:
  void Run(const std::string& displayName) {
    if (!display_) display_ = XDisplay::Connect(displayName);
    auto windows = display_ ? display_->Windows() : std::nullopt;
    if (!windows) display_.reset();
    const std::lock_guard lock(mutex_);
    if (!windows) retryAt_ = Clock::now() + reconnectDelay;
    seen_ = std::move(windows);
    isLooking_ = false;
    ended_.notify_one();
  }

  std::unique_ptr<XDisplay> display_;  // of the thread that looks
  std::mutex mutex_;                   // guards all below
  std::condition_variable ended_;
  bool isLooking_ = false;
  std::optional<std::vector<XWindow>> seen_;
  Clock::time_point retryAt_;
};

struct WindowOwner {
  std::string name;
  bool isOlder = false;  // than the host's end: its windows were there before
};

WindowOwner OwnerOf(std::int32_t processId, std::chrono::nanoseconds hostEnd) {
  const auto entry = ReadProcess(processId);
  // Start times are cut to clock ticks: in doubt the process came later.
  const bool isOlder = entry && entry->started + lengthOfTick < hostEnd;
  return {ProcessName(processId), isOlder};
}

void ActivateWindowOf(std::int32_t processId, const std::string& displayName) {
  const auto display = XDisplay::Connect(displayName);
  const auto end = Clock::now() + activationPatience;
  while (display && Clock::now() < end) {
    const auto windows = display->Windows();
    if (!windows) return;
    const auto own = std::find_if(windows->begin(), windows->end(),
                                  [processId](const XWindow& window) { return window.processId == processId; });
    if (own != windows->end()) return display->Activate(own->number);
    std::this_thread::sleep_for(activationPause);
  }
}

}  // namespace

std::optional<std::vector<Window>> OnScreenWindows() {
  const auto displayName = Environment("DISPLAY");
  if (!displayName) return std::nullopt;
  // Until the host ends a display costs a library and a connection, for a list that matters only after a crash.
  const auto hostEnd = WatchedHost().EndSeen();
  if (!hostEnd) return std::vector<Window>();
  static const auto screen = std::make_shared<Screen>();
  const auto seen = screen->Look(*displayName, Clock::now() + patience);
  if (!seen) return std::nullopt;
  std::map<std::int32_t, WindowOwner> owners;
  std::vector<Window> windows;
  windows.reserve(seen->size());
  for (const XWindow& window : *seen) {
    const auto [owner, isNew] = owners.try_emplace(window.processId);
    if (isNew && window.processId > 0) owner->second = OwnerOf(window.processId, *hostEnd);
    if (owner->second.isOlder) continue;
    windows.push_back({owner->second.name, window.title, std::to_string(window.number)});
  }
  return windows;
}

void BringToFront(std::int32_t processId) {
  const auto displayName = Environment("DISPLAY");
  if (!displayName) return;
  static_cast<void>(StartDetached([processId, name = *displayName] { ActivateWindowOf(processId, name); }));
}

}  // namespace platform
