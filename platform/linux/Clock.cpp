#include "platform/Clock.h"

#include <time.h>

#include <thread>

#include "platform/posix/Memory.h"

namespace platform {
namespace {

constexpr std::chrono::seconds longSleep{1};

}  // namespace

Time Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return Time(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

void SleepFor(std::chrono::milliseconds duration) {
  if (duration >= longSleep) ReleaseUnusedMemory();
  std::this_thread::sleep_for(duration);
}

}  // namespace platform
