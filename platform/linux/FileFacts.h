#pragma once

#include <optional>

#include "platform/Clock.h"

// What only this system can tell about a file. Of `name` in an open folder (or AT_FDCWD); neither follows a link.
namespace platform {

// None when there is no such file or it cannot be looked at.
[[nodiscard]] std::optional<Time> CreationDateAt(int folderDescriptor, const char* name);
[[nodiscard]] bool IsImmutableAt(int folderDescriptor, const char* name);

}  // namespace platform
