#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/crctl/Finding.h"

// The checks of `crctl doctor`. They look at what the daemon would, with its own code where it has any, and change
// nothing. Names of findings are fixed: scripts look for them.
namespace crctl {

// What the user asks about, beyond this account.
struct Subject {
  std::optional<std::string> application;
  std::optional<std::int32_t> host;     // its process id
  std::optional<std::string> reporter;  // path of the crash reporter
};

// session-bus, exit-status, windows, daemon-program, helper
[[nodiscard]] Findings CheckMachine();
// library, reports-folder, queue-folder, preferences-folder, log-folder, disk-space, preferences, never-send, debug-log
[[nodiscard]] Findings CheckFolders();
// queue, lock-files
[[nodiscard]] Findings CheckQueue();
// service-url, service-name, service-tls, service-answer. Posts an envelope without events.
[[nodiscard]] Findings CheckService();
// host, daemon, arguments, throttling, reporter: of the daemons that the subject picks out, nothing without a subject.
[[nodiscard]] Findings CheckRuns(const Subject& subject);

// The policy behind them.
[[nodiscard]] State JudgeFreeBytes(std::uint64_t bytes);
[[nodiscard]] State JudgeAge(std::chrono::seconds ageOfTheOldestEvent);
[[nodiscard]] State JudgeHeldLock(std::chrono::seconds age);
// Of the answer to an envelope without events.
[[nodiscard]] State JudgeStatus(int httpStatus);
[[nodiscard]] bool IsTrustError(const std::string& transportError);

}  // namespace crctl
