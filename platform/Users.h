#pragma once

#include <optional>
#include <string>

namespace platform {

[[nodiscard]] bool IsRootUser();

// Whether this process acts with another user's or group's rights than those of who started it: a set-user-id program.
[[nodiscard]] bool HasBorrowedRights();

// The login name of the user this process runs as.
[[nodiscard]] std::string UserName();

// The name of the user logged in at the console; none when nobody is.
[[nodiscard]] std::optional<std::string> ConsoleUser();

// Of this user, or of the named one; none for an unknown name.
[[nodiscard]] std::optional<std::string> HomeFolder(const std::optional<std::string>& user = {});

// This user's own Library folder, created when missing; none when there can be none.
[[nodiscard]] std::optional<std::string> LibraryFolder();

}  // namespace platform
