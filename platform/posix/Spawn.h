#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/Result.h"

namespace platform {

// Starts a program with this process's environment, working directory and standard streams, all signals at their
// defaults and none blocked, and no other descriptor. A program that cannot be executed is an error.
[[nodiscard]] Result<pid_t> SpawnTask(const std::string& executable, const std::vector<std::string>& arguments);

// As SpawnTask, with `stream` as both standard input and output, and in a process group of its own: what a terminal
// sends to the foreground is not for a helper.
[[nodiscard]] Result<pid_t> SpawnHelper(const std::string& executable, const std::vector<std::string>& arguments,
                                        int stream);

}  // namespace platform
