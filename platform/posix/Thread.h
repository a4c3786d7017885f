#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

namespace platform {

// A thread for one task, on a stack that goes back to the system with this object. The C library would keep a stack of
// its own making, with the pages that the task has touched, for threads to come.
class Thread {
 public:
  // Null when there is none to be had. What the task throws ends the process.
  [[nodiscard]] static std::unique_ptr<Thread> Start(std::function<void()> task);
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  // Waits for the end of the task.
  ~Thread();

  // Whether nobody would have to wait.
  [[nodiscard]] bool HasEnded() const noexcept { return hasEnded_; }

 private:
  struct Stack {
    Stack() = default;
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;
    ~Stack();
    // Above a page that nobody may touch.
    [[nodiscard]] bool Map(std::size_t size);

    char* lowest = nullptr;
    std::size_t bytes = 0;
  };

  explicit Thread(std::function<void()> task);
  static void* Run(void* self) noexcept;

  std::function<void()> task_;
  Stack stack_;
  std::atomic<bool> hasEnded_ = false;
  bool isStarted_ = false;
  pthread_t id_{};
};

}  // namespace platform
