#pragma once

#include <string>
#include <vector>

namespace crctl {

// What stands in the queue now; nothing while there is no queue. Sorted, since the daemon's own order is the file
// system's.
[[nodiscard]] std::vector<std::string> EventPaths();
// Of any kind, folders included: whatever stands where a lock file has to be.
[[nodiscard]] std::vector<std::string> LockPaths();

}  // namespace crctl
