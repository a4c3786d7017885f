#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <string_view>

#include "hostkit/posix/Options.h"

namespace hostkit {

// What a report says of the process as a whole, made while all is well. Lies in memory that cannot be written any more,
// and stays there.
struct ReportPlan {
  pid_t process = 0;
  const char* folder = "";     // empty: there is nowhere to write to
  const char* temporary = "";  // beside `path`
  const char* path = "";
  std::string_view application;
  std::string_view version;
  std::string_view codeType;
  std::string_view userGuid;
  std::string_view sessionId;
  std::string_view reporterVersion;
  std::string_view launchTime;
  std::string_view system;
};

// Of this process, under today's name. Null: out of memory.
[[nodiscard]] const ReportPlan* PlanReport(const crhost_options& options);

// From here on, safe in a signal handler.

struct Death {
  int signal;
  const siginfo_t* info;
  const void* context;
};

// Writes the report of the calling thread, whole or not at all. One thread, once.
void WriteReport(const ReportPlan& plan, const Death& death);

// What a writer that crashed has left.
void DiscardReport(const ReportPlan& plan);

}  // namespace hostkit
