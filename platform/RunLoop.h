#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

// Notices about the host and from it. The observers are registered on the main thread before the loop runs; which
// thread calls a handler is the system's choice, and several may run at once. A handler must not throw.
namespace platform {

using TerminationHandler = std::function<void(const std::string& processId, std::int64_t exitStatus)>;
using DistributedHandler =
    std::function<void(const std::string& name, const std::map<std::string, std::string>& userInfo)>;

// The end of an application, with its exit code or the number of the signal that ended it.
void ObserveTermination(TerminationHandler handler);

// A log-out arrives as the distributed notification of this name, and so does SIGTERM, the end of the user's session.
inline constexpr char logoutName[] = "com.apple.logoutContinued";

// Distributed notifications of one name, or of every name when there is none.
void ObserveDistributed(std::optional<std::string> name, DistributedHandler handler);

// Main thread: waits until something came (and delivers it) or until woken. False: there is no input left to wait for.
[[nodiscard]] bool WaitForInput();

// Any thread: makes the current or the next WaitForInput return.
void WakeRunLoop() noexcept;

// Any thread: the worker has returned, so that only the host's end is worth waiting for.
void WorkerReturned() noexcept;

// Returns when no handler runs or ever will again.
void StopDelivery();

}  // namespace platform
