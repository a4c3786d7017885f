#include "platform/posix/SpawnStreams.h"

#include <unistd.h>

namespace platform {

const short streamsOnlyFlag = 0;

bool AddStreamsOnly(posix_spawn_file_actions_t& actions) {
  return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0;
}

}  // namespace platform
