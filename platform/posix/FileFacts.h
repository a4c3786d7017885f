#pragma once

#include <optional>

#include "platform/Clock.h"

// What the systems tell about files and do with them, each in a way of its own.
namespace platform {

// Opens a folder to pass through, if the system can also one whose entries may not be read; close-on-exec.
extern const int searchFlags;

// Of `name` in an open folder; neither follows a link. No date when there is no such file or it cannot be looked at.
[[nodiscard]] std::optional<Time> CreationDateAt(int folderDescriptor, const char* name);
[[nodiscard]] bool IsImmutableAt(int folderDescriptor, const char* name);

// Returns when what was written would survive a power loss. False, with errno set, on failure.
[[nodiscard]] bool SyncToDisk(int descriptor);

}  // namespace platform
