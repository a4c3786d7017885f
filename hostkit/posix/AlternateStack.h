#pragma once

#include "hostkit/posix/Outcome.h"

namespace hostkit {

// Gives the calling thread a stack for its signal handlers, until it ends.
[[nodiscard]] Outcome ArmThread();

}  // namespace hostkit
