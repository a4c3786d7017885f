#pragma once

#include "hostkit/posix/SignalReport.h"

namespace hostkit {

// Of the process that started the daemon; null anywhere else, such as in a fork of it. Safe in a signal handler.
[[nodiscard]] const ReportPlan* PlanOfThisProcess();

}  // namespace hostkit
