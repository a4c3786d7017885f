#pragma once

#include <exception>
#include <string>
#include <utility>

#include "hostkit/include/crhost.h"

namespace hostkit {

// How an operation went, in C++.
struct Outcome {
  crhost_status status = CRHOST_OK;
  std::string text;
  int systemError = 0;

  explicit operator bool() const { return status == CRHOST_OK; }
};

// With the system's own words for `systemError`.
[[nodiscard]] Outcome SystemFailure(crhost_status status, const std::string& what, int systemError);

// Fills in `error`, which may be null, as far as the text fits.
crhost_status Report(const Outcome& outcome, crhost_error* error) noexcept;

// The border to C: what `operation` throws is a failure like any other.
template <typename Operation>
crhost_status Guarded(crhost_error* error, Operation operation) noexcept {
  try {
    return Report(operation(), error);
  } catch (const std::exception& exception) {
    try {
      return Report({CRHOST_SYSTEM_ERROR, exception.what(), 0}, error);
    } catch (...) {
      return Report({CRHOST_SYSTEM_ERROR, {}, 0}, error);
    }
  }
}

}  // namespace hostkit
