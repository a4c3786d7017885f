#include "platform/posix/Memory.h"

#include <malloc/malloc.h>

namespace platform {

void ReleaseUnusedMemory() noexcept {
  ReleaseEndedThreads();
  malloc_zone_pressure_relief(nullptr, 0);
}

}  // namespace platform
