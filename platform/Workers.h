#pragma once

#include <functional>
#include <memory>

namespace platform {

// Tasks that run beside their submitter, each on a thread of its own, or in place when there is no thread to be had.
// What a task throws ends the process.
class WorkerGroup {
 public:
  WorkerGroup();
  WorkerGroup(const WorkerGroup&) = delete;
  WorkerGroup& operator=(const WorkerGroup&) = delete;
  // Waits.
  ~WorkerGroup();

  void Async(std::function<void()> task);
  // Until none is left, those submitted meanwhile included.
  void Wait();

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace platform
