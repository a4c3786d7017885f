#include "platform/posix/Memory.h"

#include <link.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {
namespace {

char* PageOf(char* address) {
  static const auto pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return address - (reinterpret_cast<std::uintptr_t>(address) & (pageBytes - 1));
}

// How far the calling thread's stack may be given back; null when that cannot be known. Asked once a thread.
char* StackEnd() {
  // The C library reads the map of all memory to tell where the main thread's ends. The kernel has twice this much
  // mapped below every program that starts, and nothing else for a long way.
  constexpr std::ptrdiff_t surelyOfMainThread = std::ptrdiff_t{64} << 10;
  if (gettid() == getpid()) return PageOf(static_cast<char*>(__builtin_frame_address(0))) - surelyOfMainThread;
  pthread_attr_t attributes{};
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return nullptr;
  void* lowest = nullptr;
  std::size_t size = 0;
  const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  pthread_attr_destroy(&attributes);
  return isKnown ? static_cast<char*>(lowest) : nullptr;
}

// All below the frames in use and what the kernel may still write beneath them.
void ReleaseStack() {
  thread_local char* const end = StackEnd();
  constexpr std::ptrdiff_t ownFrameAndRedZone = 512;
  char* const inUse = PageOf(static_cast<char*>(__builtin_frame_address(0)) - ownFrameAndRedZone);
  if (end != nullptr && inUse > end) madvise(end, static_cast<std::size_t>(inUse - end), MADV_DONTNEED);
}

// The pages of one program file that nobody can have written to. What is needed again is still in the page cache.
int ReleasePages(dl_phdr_info* object, std::size_t /*size*/, void* /*context*/) {
  for (const auto& segment : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    // The loader tells addresses as numbers. NOLINTNEXTLINE(performance-no-int-to-ptr)
    auto* const address = reinterpret_cast<char*>(object->dlpi_addr + segment.p_vaddr);
    char* const begin = PageOf(address);
    madvise(begin, static_cast<std::size_t>(address + segment.p_memsz - begin), MADV_DONTNEED);
  }
  return 0;
}

// Once in a process, a few seconds after its start, which needs far more code than the wait does. Not in a debug build:
// a debugger's breakpoints are written into these pages.
void ReleasePagesOfStart() {
#ifdef NDEBUG
  constexpr bool isDebugBuild = false;
#else
  constexpr bool isDebugBuild = true;
#endif
  constexpr int callsOfStart = 8;
  static std::atomic<int> calls = 0;
  if (isDebugBuild || calls.load() >= callsOfStart) return;
  if (++calls == callsOfStart) dl_iterate_phdr(ReleasePages, nullptr);
}

}  // namespace

void ReleaseUnusedMemory() noexcept {
  ReleaseEndedThreads();
  malloc_trim(0);
  ReleaseStack();
  ReleasePagesOfStart();
}

}  // namespace platform
