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
[[nodiscard]] std::optional<std::vector<Window>> OnScreenWindows();

}  // namespace platform
