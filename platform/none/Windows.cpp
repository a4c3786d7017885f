#include "platform/Windows.h"

#include "platform/Tasks.h"

namespace platform {

std::optional<std::vector<Window>> OnScreenWindows() { return std::nullopt; }

void BringToFront(std::int32_t /*processId*/) {}

}  // namespace platform
