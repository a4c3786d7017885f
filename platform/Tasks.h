#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Result.h"

namespace platform {

// Starts a program that goes its own way: it inherits environment, working directory and standard streams, no other
// descriptor, and ordinary signal settings. Its process id, or why it could not be started.
[[nodiscard]] Result<std::int32_t> StartTask(const std::string& executable, const std::vector<std::string>& arguments);

// Best effort, silent, returns at once.
void BringToFront(std::int32_t processId);

}  // namespace platform
