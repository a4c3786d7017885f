#pragma once

#include <chrono>
#include <optional>

namespace platform {

// Lets what a terminal sends, broken pipes and limits of a file's size pass this process by, and makes its children
// waitable.
// SIGTERM waits from now on, in this thread and those that it starts, for CatchTermination.
void SettleSignals();

// The calling thread takes SIGTERM from now on, also one that has waited: it ends nothing, but is noted. `wake`, unless
// null, is called in the signal handler: async-signal-safe calls only.
void CatchTermination(void (*wake)());

// When the first SIGTERM was taken; none before. Any thread.
[[nodiscard]] std::optional<std::chrono::steady_clock::time_point> TerminationRequest() noexcept;

}  // namespace platform
