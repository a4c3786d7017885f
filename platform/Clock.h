#pragma once

#include <chrono>

namespace platform {

using Time = std::chrono::sys_time<std::chrono::nanoseconds>;

// The present, from the clock that stamps files: a file created after this call never carries an earlier creation date.
[[nodiscard]] Time Now();

// Blocks the calling thread; nothing wakes it early.
void SleepFor(std::chrono::milliseconds duration);

}  // namespace platform
