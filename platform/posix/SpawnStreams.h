#pragma once

#include <spawn.h>

// How each system is told that a new process gets the three standard streams and no other descriptor.
namespace platform {

// For posix_spawnattr_setflags.
extern const short streamsOnlyFlag;

// After all other actions. False: out of memory.
[[nodiscard]] bool AddStreamsOnly(posix_spawn_file_actions_t& actions);

}  // namespace platform
