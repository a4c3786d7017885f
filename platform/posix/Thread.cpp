#include "platform/posix/Thread.h"

#include <sys/mman.h>
#include <unistd.h>

#include <utility>

namespace platform {
namespace {

// No huge pages, where the system would think of them.
#ifdef MAP_STACK
constexpr int mappingFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK;
#else
constexpr int mappingFlags = MAP_PRIVATE | MAP_ANONYMOUS;
#endif

std::size_t GuardBytes() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

}  // namespace

bool Thread::Stack::Map(std::size_t size) {
  void* const begin = mmap(nullptr, GuardBytes() + size, PROT_NONE, mappingFlags, -1, 0);
  if (begin == MAP_FAILED) return false;
  lowest = static_cast<char*>(begin) + GuardBytes();
  bytes = size;
  return mprotect(lowest, bytes, PROT_READ | PROT_WRITE) == 0;
}

Thread::Stack::~Stack() {
  if (lowest != nullptr) munmap(lowest - GuardBytes(), GuardBytes() + bytes);
}

std::unique_ptr<Thread> Thread::Start(std::function<void()> task) {
  std::unique_ptr<Thread> thread(new Thread(std::move(task)));
  return thread->isStarted_ ? std::move(thread) : nullptr;
}

Thread::Thread(std::function<void()> task) : task_(std::move(task)) {
  pthread_attr_t attributes{};
  if (pthread_attr_init(&attributes) != 0) return;
  std::size_t size = 0;
  isStarted_ = pthread_attr_getstacksize(&attributes, &size) == 0 && stack_.Map(size) &&
               pthread_attr_setstack(&attributes, stack_.lowest, size) == 0 &&
               pthread_create(&id_, &attributes, Run, this) == 0;
  pthread_attr_destroy(&attributes);
}

Thread::~Thread() {
  if (isStarted_) pthread_join(id_, nullptr);
}

void* Thread::Run(void* self) noexcept {
  auto* thread = static_cast<Thread*>(self);
  thread->task_();
  thread->hasEnded_ = true;
  return nullptr;
}

}  // namespace platform
