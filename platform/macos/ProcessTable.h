#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Result.h"

namespace platform {

struct ProcessEntry {
  std::string name;                    // the kernel keeps 16 bytes of it
  std::int64_t startMicroseconds = 0;  // since 1970
  bool isZombie = false;
};

// All processes; empty when the table cannot be read.
[[nodiscard]] std::vector<ProcessEntry> ReadProcesses();

// One of them; no value when there is no such process.
[[nodiscard]] Result<std::optional<ProcessEntry>> ReadProcess(std::int32_t processId);

// The process given to WatchHost; 0 before.
[[nodiscard]] std::int32_t WatchedHost();

}  // namespace platform
