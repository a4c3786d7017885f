#include "platform/posix/Memory.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace platform {
namespace {

// All below the frames in use and what the kernel may still write beneath them.
void ReleaseStack() {
  pthread_attr_t attributes{};
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
  void* lowest = nullptr;
  std::size_t size = 0;
  const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  pthread_attr_destroy(&attributes);
  if (!isKnown) return;
  constexpr std::uintptr_t redZone = 256;
  const auto pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto inUse = (reinterpret_cast<std::uintptr_t>(&attributes) - redZone) & ~(pageBytes - 1);
  const auto begin = reinterpret_cast<std::uintptr_t>(lowest);
  if (inUse > begin) madvise(lowest, inUse - begin, MADV_DONTNEED);
}

}  // namespace

void ReleaseUnusedMemory() noexcept {
  malloc_trim(0);
  ReleaseStack();
}

}  // namespace platform
