#include "platform/Clock.h"

#include <time.h>

#include <thread>

namespace platform {

Time Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return Time(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

void SleepFor(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace platform
