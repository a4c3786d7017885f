#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// Takes hold of the host process, so that a recycled id is never taken for it. Once, before other threads start.
void WatchHost(std::int32_t processId);

// Any thread. A zombie and a process that took over the id are not alive; neither is an id below 1.
[[nodiscard]] bool HostLives(std::int32_t processId);

// The whole names of all living processes, zombies left out; empty when the table cannot be read.
[[nodiscard]] std::vector<std::string> ProcessNames();

[[nodiscard]] std::int32_t CurrentProcessId();

// The folder that this program's own file stands in; empty when unknown.
[[nodiscard]] std::string ProgramFolder();

// None when unset, and always in a set-user-id process.
[[nodiscard]] std::optional<std::string> Environment(const std::string& name);

// Lets terminal signals, broken pipes and limits of a file's size pass this process by, makes its children waitable,
// and keeps its memory small. Once, before threads start.
void SettleProcess();

// Lets this process, and those it starts from now on, have at least `files` files open, where the system permits it.
// The limit that is then in force.
[[nodiscard]] std::uint64_t RaiseOpenFileLimit(std::uint64_t files);

}  // namespace platform
