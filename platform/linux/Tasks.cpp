#include "platform/Tasks.h"

#include "platform/posix/Spawn.h"

namespace platform {

std::optional<std::int32_t> StartTask(const std::string& executable, const std::vector<std::string>& arguments) {
  const auto process = SpawnTask(executable, arguments);
  return process ? std::optional<std::int32_t>(*process) : std::nullopt;
}

}  // namespace platform
