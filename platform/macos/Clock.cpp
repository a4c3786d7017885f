#include "platform/Clock.h"

#include <time.h>

#include <thread>

namespace platform {

// Files are stamped with this very clock.
Time Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return Time(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

void SleepFor(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace platform
