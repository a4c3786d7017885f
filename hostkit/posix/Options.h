#pragma once

#include <array>
#include <string>
#include <vector>

#include "hostkit/include/crhost.h"
#include "hostkit/posix/Outcome.h"

// The texts by their numbers.
struct crhost_options {
  static constexpr std::size_t count = CRHOST_SESSION_ID + 1;

  std::array<std::string, count> texts;

  [[nodiscard]] const std::string& operator[](crhost_option option) const { return texts[option]; }
};

namespace hostkit {

[[nodiscard]] Outcome CheckOptions(const crhost_options& options);

// The daemon's arguments, its own path in front.
[[nodiscard]] std::vector<std::string> DaemonArguments(const crhost_options& options);

}  // namespace hostkit
