#pragma once

#include <sys/types.h>

#include <optional>
#include <system_error>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/posix/Descriptor.h"

// What the systems tell about files and do with them, each in a way of its own.
namespace platform {

// Opens a folder to pass through, if the system can also one whose entries may not be read; close-on-exec.
extern const int searchFlags;

// Of `name` in an open folder; none of them follows a link. No date when there is no such file or it cannot be looked
// at.
[[nodiscard]] std::optional<Time> CreationDateAt(int folderDescriptor, const char* name);
[[nodiscard]] std::optional<FileStamp> StampAt(int folderDescriptor, const char* name);
[[nodiscard]] bool IsImmutableAt(int folderDescriptor, const char* name);

// Makes a folder that is `owner`'s from its first moment where the system can do that; none: this process's own.
[[nodiscard]] std::error_code MakeFolderFor(const std::optional<Owner>& owner, int folderDescriptor, const char* name,
                                            mode_t mode);

// A file for writing, 0600, that stands in no folder and goes with its descriptor, on the file system of an open
// folder. An error also where there is no such thing.
[[nodiscard]] Result<Descriptor> OpenUnnamed(int folderDescriptor);
// Its first name; EEXIST when something stands there.
[[nodiscard]] std::error_code NameUnnamed(int file, int folderDescriptor, const char* name);

// A rename that replaces nothing: false, with errno set, also where something stands under the new name and where the
// file system cannot do it.
[[nodiscard]] bool RenameToAbsent(int oldFolder, const char* oldName, int newFolder, const char* newName);

// Returns when what was written would survive a power loss. False, with errno set, on failure.
[[nodiscard]] bool SyncToDisk(int descriptor);

}  // namespace platform
