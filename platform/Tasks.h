#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// Starts a program that goes its own way: it inherits environment, working directory and standard streams, no other
// descriptor, and ordinary signal settings. Its process id, or none when it could not be started.
[[nodiscard]] std::optional<std::int32_t> StartTask(const std::string& executable,
                                                    const std::vector<std::string>& arguments);

// Best effort, silent, returns at once.
void BringToFront(std::int32_t processId);

}  // namespace platform
