#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

struct ProcessEntry {
  std::string shortName;                // cut at 15 bytes by the kernel
  bool isGone = false;                  // a zombie, or being taken down
  std::chrono::milliseconds started{};  // since the system's start, rounded down to a clock tick (10 ms)
  // As wait() gives it: of a zombie of our own user, or of anybody's for root.
  std::optional<int> exitStatus;
};

// None when there is no such process, or none that may be looked at.
[[nodiscard]] std::optional<ProcessEntry> ReadProcess(std::int32_t processId);

// The whole name of a living process; empty when there is none.
[[nodiscard]] std::string ProcessName(std::int32_t processId);

// The path of a process's program, also of one removed or replaced since; `processId` in decimal, or "self". Empty for
// other users' processes and for the kernel's own.
[[nodiscard]] std::string ExecutableOf(const std::string& processId);

}  // namespace platform
