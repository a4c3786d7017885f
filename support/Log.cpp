#include "support/Log.h"

#include "support/CRLogger.h"
#include "support/Paths.h"

namespace {

CRLogger::Logger* DaemonLogger() { return CRLogger::Logger::GetLogger("CRDaemon"); }

std::string CodeInfo(const CodePlace& place) {
  return CRLogger::Logger::GetCodeInfo(paths::LastComponent(place.file), place.line);
}

}  // namespace

void LogInfo(const std::string& text, CodePlace place) { DaemonLogger()->LogInfo(text, CodeInfo(place)); }

void LogError(const std::string& text, CodePlace place) { DaemonLogger()->LogError(text, CodeInfo(place)); }
