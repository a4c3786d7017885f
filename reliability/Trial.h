#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace reliability {

// Runs `action` in a child process, within a time and a memory that honest work never needs: two seconds of processor
// time for each of its `steps` (many times that where the code is not optimised, or checks itself) and `memoryBytes`
// more than this process holds. Empty when it answered true within both; else what went wrong.
[[nodiscard]] std::string FailureOf(const std::function<bool()>& action, std::uint64_t memoryBytes, int steps = 1);

}  // namespace reliability
