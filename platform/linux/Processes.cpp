#include "platform/Processes.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/linux/ProcessTable.h"
#include "platform/posix/Signals.h"

namespace platform {
namespace {

// The file that libXau takes by itself. It would keep the name in a buffer which the threads that connect to a display
// share, and which is freed at the exit, whatever they do.
void NameDisplayAuthority() {
  const auto home = Environment("HOME");
  if (home && Environment("DISPLAY")) setenv("XAUTHORITY", (*home + "/.Xauthority").c_str(), 0);
}

}  // namespace

std::int32_t CurrentProcessId() { return getpid(); }

std::string ProgramFolder() {
  const std::string program = ExecutableOf("self");
  const std::size_t slash = program.find_last_of('/');
  return slash == std::string::npos ? std::string() : program.substr(0, slash == 0 ? 1 : slash);
}

std::optional<std::string> Environment(const std::string& name) {
  const char* value = secure_getenv(name.c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void SettleProcess() {
  SettleSignals();
  // A heap for each thread would be pages held for nothing: ours seldom allocate at the same time.
  mallopt(M_ARENA_MAX, 1);
  NameDisplayAuthority();
}

}  // namespace platform
