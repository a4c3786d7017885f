#include <signal.h>

#include "tests/contract/Scene.h"

namespace scene {

// It stays a zombie, so that its status can be learnt on every kernel.
void KillHost(std::int32_t host, int signal) { kill(host, signal); }

}  // namespace scene
