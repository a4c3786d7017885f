#include "tools/crctl/ErrorLines.h"

#include <utility>

namespace crctl {

ErrorLines& ErrorLines::Get() {
  static auto* lines = new ErrorLines();
  CRLogger::Logger::pLogger = lines;
  return *lines;
}

void ErrorLines::LogError(const std::string& message, const std::string& /*codeInfo*/) { lines_.push_back(message); }

std::vector<std::string> ErrorLines::Take() { return std::exchange(lines_, {}); }

std::string Joined(const std::vector<std::string>& lines) {
  std::string joined;
  for (const std::string& line : lines) joined += (joined.empty() ? "" : "; ") + line;
  return joined;
}

}  // namespace crctl
