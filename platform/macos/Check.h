#pragma once

#include <cstdio>
#include <cstdlib>

namespace platform {

// Ends the process when the system breaks a promise; in every build.
inline void Check(bool holds, const char* condition, const char* function = __builtin_FUNCTION()) {
  if (holds) return;
  std::fprintf(stderr, "Assertion failed: (%s), function %s\n", condition, function);
  std::abort();
}

}  // namespace platform
