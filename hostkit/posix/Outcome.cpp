#include "hostkit/posix/Outcome.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <system_error>

namespace hostkit {

Outcome SystemFailure(crhost_status status, const std::string& what, int systemError) {
  return {status, what + ": " + std::generic_category().message(systemError), systemError};
}

crhost_status Report(const Outcome& outcome, crhost_error* error) noexcept {
  if (error == nullptr) return outcome.status;
  error->status = outcome.status;
  error->system_error = outcome.systemError;
  const std::size_t size = std::min(outcome.text.size(), std::size(error->text) - 1);
  std::memcpy(error->text, outcome.text.data(), size);
  error->text[size] = '\0';
  return outcome.status;
}

}  // namespace hostkit
