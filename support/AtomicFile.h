#pragma once

#include <string>
#include <string_view>
#include <system_error>

enum class ModeAndOwner { privateToUser, asTheFileReplaced };

// Writes `bytes` to `path` so that a reader sees the old file or the whole new one, also after a power loss: temporary
// file beside it, fsync, rename, fsync of the folder. The file is 0600, or keeps mode and owner of the one it replaces.
// The user's own link stays, and what it leads to is replaced. An error leaves `path` untouched (one of the last step:
// in place, perhaps not yet durable).
[[nodiscard]] std::error_code WriteAtomically(const std::string& path, std::string_view bytes,
                                              ModeAndOwner modeAndOwner = ModeAndOwner::privateToUser);

// The same (0600) where nothing stands yet, and EEXIST where something does. A kill midway leaves nothing behind, if
// the file system can do that. Where this way fails, the one above is tried.
[[nodiscard]] std::error_code WriteNew(const std::string& path, std::string_view bytes);
