#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Clock.h"

// The values that belong to the process rather than to the record of its one daemon. Written by the worker alone once
// it runs; the upload runs read `REPORTS_DIR`, which never changes.
struct ProcessValues {
  std::vector<std::string> arguments;  // element 0 is the program
  platform::Time startDate{};          // older files are none of this run's
  std::string UserLibrary;             // the console user's Library folder, with a leading "~"
  std::string REPORTS_DIR;             // the event queue
  std::string isCRGeneratedReport = "0";
  std::string additionalHangFile;
  std::optional<std::string> disableCrashReporting;
  std::set<std::string> refused;  // what the log has named already
  std::int32_t hangReportWaitCounter = 0;
  bool exitOnExitZero = false;
  bool unknownExitCode = false;
  bool isSignal = false;
  bool isAppleReportAvailable = false;
  bool foundHangReport = false;
};

[[nodiscard]] ProcessValues& ProcessWide();

// What holds at the start of every process: the moment of the call, the Library, the queue.
[[nodiscard]] ProcessValues InitialProcessValues();
