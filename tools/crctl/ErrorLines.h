#pragma once

#include <string>
#include <vector>

#include "support/CRLogger.h"

namespace crctl {

// Stands in for the daemon's log while its code runs here: no file is written, and the error lines say what went wrong.
// To be had before anything logs; main thread.
class ErrorLines : public CRLogger::NULLLogger {
 public:
  // Installed by the first call, for the life of the process.
  static ErrorLines& Get();

  using NULLLogger::LogError;
  void LogError(const std::string& message, const std::string& codeInfo) override;

  // The lines since the last call.
  [[nodiscard]] std::vector<std::string> Take();

 private:
  std::vector<std::string> lines_;
};

[[nodiscard]] std::string Joined(const std::vector<std::string>& lines);

}  // namespace crctl
