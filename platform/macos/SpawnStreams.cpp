#include "platform/posix/SpawnStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace platform {

const short streamsOnlyFlag = POSIX_SPAWN_CLOEXEC_DEFAULT;

bool AddStreamsOnly(posix_spawn_file_actions_t& actions) {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // One that is not open could not be inherited, and nothing would be started.
    if (fcntl(stream, F_GETFD) >= 0 && posix_spawn_file_actions_addinherit_np(&actions, stream) != 0) return false;
  }
  return true;
}

}  // namespace platform
