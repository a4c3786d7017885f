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

// Where the calling thread's stack ends; 0 when that cannot be known. Asked once a thread: the main thread's answer
// takes a dozen system calls.
std::uintptr_t StackEnd() {
  pthread_attr_t attributes{};
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* lowest = nullptr;
  std::size_t size = 0;
  const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
  pthread_attr_destroy(&attributes);
  return isKnown ? reinterpret_cast<std::uintptr_t>(lowest) : 0;
}

std::uintptr_t PageOf(std::uintptr_t address) {
  static const auto pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return address & ~(pageBytes - 1);
}

// All below the frames in use and what the kernel may still write beneath them.
void ReleaseStack() {
  thread_local const std::uintptr_t end = StackEnd();
  constexpr std::uintptr_t redZone = 256;
  const char here = 0;
  const std::uintptr_t inUse = PageOf(reinterpret_cast<std::uintptr_t>(&here) - redZone);
  if (end != 0 && inUse > end) madvise(reinterpret_cast<void*>(end), inUse - end, MADV_DONTNEED);
}

// The pages of one program file that nobody can have written to. What is needed again is still in the page cache.
[[maybe_unused]] int ReleasePages(dl_phdr_info* object, std::size_t /*size*/, void* /*context*/) {
  for (const ElfW(Phdr) & segment : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    const std::uintptr_t begin = PageOf(object->dlpi_addr + segment.p_vaddr);
    const std::uintptr_t end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
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
  malloc_trim(0);
  ReleaseStack();
  ReleasePagesOfStart();
}

}  // namespace platform
