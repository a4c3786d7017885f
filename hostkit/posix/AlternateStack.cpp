#include "hostkit/posix/AlternateStack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace hostkit {
namespace {

// Room for two handlers and the unwinder, on processors with large registers too. Only what is used takes memory.
constexpr std::size_t stackBytes = std::size_t{256} << 10U;
constexpr std::size_t enoughBytes = std::size_t{64} << 10U;

std::size_t GuardBytes() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

void Release(void* memory) {
  stack_t current{};
  if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == static_cast<char*>(memory) + GuardBytes()) {
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    none.ss_size = enoughBytes;  // some systems look at it all the same
    sigaltstack(&none, nullptr);
  }
  munmap(memory, GuardBytes() + stackBytes);
}

struct Key {
  pthread_key_t key{};
  int error = pthread_key_create(&key, Release);
};

Outcome Failure(int error) { return SystemFailure(CRHOST_SYSTEM_ERROR, "stack for signals", error); }

}  // namespace

Outcome ArmThread() {
  static const Key key;
  if (key.error != 0) return Failure(key.error);
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0) return Failure(errno);
  if ((current.ss_flags & SS_DISABLE) == 0 && current.ss_size >= enoughBytes) return {};

  const std::size_t size = GuardBytes() + stackBytes;
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return Failure(errno);
  mprotect(memory, GuardBytes(), PROT_NONE);
  stack_t stack{};
  stack.ss_sp = static_cast<char*>(memory) + GuardBytes();
  stack.ss_size = stackBytes;
  int error = sigaltstack(&stack, nullptr) == 0 ? 0 : errno;
  if (error == 0) error = pthread_setspecific(key.key, memory);
  if (error == 0) return {};
  Release(memory);
  return Failure(error);
}

}  // namespace hostkit
