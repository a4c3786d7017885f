#include "platform/Workers.h"

#include <mutex>
#include <utility>
#include <vector>

#include "platform/posix/Memory.h"
#include "platform/posix/Thread.h"

namespace platform {
namespace {

using Threads = std::vector<std::unique_ptr<Thread>>;

// The threads of one group that were started and not yet waited for.
class Crew {
 public:
  [[nodiscard]] bool TryStart(const std::function<void()>& task) {
    const std::lock_guard lock(mutex_);
    auto thread = Thread::Start([task] {
      task();
      ReleaseUnusedMemory();
    });
    if (!thread) return false;
    threads_.push_back(std::move(thread));
    return true;
  }

  [[nodiscard]] Threads Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(threads_, {});
  }

  void ReleaseEnded() {
    const std::lock_guard lock(mutex_);
    std::erase_if(threads_, [](const auto& thread) { return thread->HasEnded(); });
  }

 private:
  std::mutex mutex_;
  Threads threads_;
};

// All that there are: who gives memory back does not know the groups.
struct Crews {
  std::mutex mutex;
  std::vector<Crew*> all;
};

Crews& AllCrews() {
  // Never destroyed: a thread that nobody waits for gives memory back when it ends, and may outlive main.
  static auto* const crews = new Crews;
  return *crews;
}

}  // namespace

struct WorkerGroup::Body : Crew {
  Body() {
    const std::lock_guard lock(AllCrews().mutex);
    AllCrews().all.push_back(this);
  }
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  ~Body() {
    const std::lock_guard lock(AllCrews().mutex);
    std::erase(AllCrews().all, this);
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
  for (auto threads = body_->Take(); !threads.empty(); threads = body_->Take()) threads.clear();
}

void ReleaseEndedThreads() noexcept {
  const std::lock_guard lock(AllCrews().mutex);
  for (Crew* crew : AllCrews().all) crew->ReleaseEnded();
}

}  // namespace platform
