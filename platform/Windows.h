#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform {

struct Window {
  std::optional<std::string> ownerName;
  std::optional<std::string> title;  // empty and absent are two things
  std::string number;                // decimal
};

// The windows on screen, front first. None without a window server, and when it does not answer within half a second.
// On Linux the list is empty until the watched host has ended; from then on it leaves out the windows of processes that
// started before. macOS lists all windows at any time.
[[nodiscard]] std::optional<std::vector<Window>> OnScreenWindows();

}  // namespace platform
