#include "platform/Tasks.h"

#include "platform/posix/Spawn.h"

namespace platform {

Result<std::int32_t> StartTask(const std::string& executable, const std::vector<std::string>& arguments) {
  return SpawnTask(executable, arguments);
}

}  // namespace platform
