#include "platform/Processes.h"

#include <unistd.h>

#include <cstdlib>

#include "platform/macos/Objects.h"
#include "platform/macos/ProcessTable.h"
#include "platform/posix/Signals.h"

namespace platform {
namespace {

struct Host {
  std::int32_t id = 0;
  std::optional<std::int64_t> startMicroseconds;  // none: gone from the first, or not to be learnt
};

Host& TheHost() {
  static Host host;
  return host;
}

}  // namespace

void WatchHost(std::int32_t processId) {
  Host& host = TheHost();
  host = {processId, std::nullopt};
  const auto entry = ReadProcess(processId);
  if (entry && *entry) host.startMicroseconds = (*entry)->startMicroseconds;
}

std::int32_t WatchedHost() { return TheHost().id; }

bool HostLives(std::int32_t processId) {
  if (processId < 1 || getpgid(processId) < 0) return false;
  const auto entry = ReadProcess(processId);
  if (!entry) return true;
  if (!*entry || (*entry)->isZombie) return false;
  const Host& host = TheHost();
  return processId != host.id || host.startMicroseconds == (*entry)->startMicroseconds;
}

std::vector<std::string> ProcessNames() {
  std::vector<std::string> names;
  for (auto& entry : ReadProcesses()) {
    if (!entry.isZombie) names.push_back(std::move(entry.name));
  }
  return names;
}

std::int32_t CurrentProcessId() { return getpid(); }

std::string ProgramFolder() {
  const Pool pool;
  NSString* const program = [[[NSBundle mainBundle] executablePath] stringByResolvingSymlinksInPath];
  return FromText([program stringByDeletingLastPathComponent]).value_or("");
}

std::optional<std::string> Environment(const std::string& name) {
  const char* value = issetugid() != 0 ? nullptr : std::getenv(name.c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void SettleProcess() { SettleSignals(); }

}  // namespace platform
