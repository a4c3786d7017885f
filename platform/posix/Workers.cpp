#include "platform/Workers.h"

#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/Memory.h"

namespace platform {

struct WorkerGroup::Body {
  std::mutex mutex;
  std::vector<std::thread> threads;  // started and not yet waited for

  [[nodiscard]] bool TryStart(const std::function<void()>& task) {
    const std::lock_guard lock(mutex);
    try {
      threads.emplace_back([task]() noexcept {
        task();
        ReleaseUnusedMemory();
      });
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }

  [[nodiscard]] std::vector<std::thread> Take() {
    const std::lock_guard lock(mutex);
    return std::exchange(threads, {});
  }
};

WorkerGroup::WorkerGroup() : body_(std::make_unique<Body>()) {}

WorkerGroup::~WorkerGroup() { Wait(); }

void WorkerGroup::Async(std::function<void()> task) {
  if (body_->TryStart(task)) return;
  const auto inPlace = [&task]() noexcept { task(); };
  inPlace();
}

void WorkerGroup::Wait() {
  // A task submits before it ends, so that the next look finds what it submitted.
  for (auto threads = body_->Take(); !threads.empty(); threads = body_->Take()) {
    for (auto& thread : threads) thread.join();
  }
}

}  // namespace platform
