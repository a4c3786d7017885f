#pragma once

#include <string>
#include <vector>

namespace crctl {

// An error: reports or notices do not arrive. A warning: they may not, or not before long, or nobody is asked.
enum class State { ok, warning, error };

struct Finding {
  std::string name;
  State state = State::ok;
  std::string seen;
  std::string advice;  // what to do; empty when there is nothing to be done
};
using Findings = std::vector<Finding>;

[[nodiscard]] const char* TextOf(State state);

}  // namespace crctl
