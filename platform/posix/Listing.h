#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "platform/posix/Descriptor.h"

namespace platform {

// Reads the names in an open folder, "." and ".." left out, and closes it.
class Listing {
 public:
  explicit Listing(Descriptor folder);

  // None at the end and after a failure.
  [[nodiscard]] std::optional<std::string> Next();
  [[nodiscard]] std::error_code Error() const { return error_; }

  // Of the entry that Next returned last, as the system told along with its name, so that no call is spent on it; none
  // when it did not say.
  [[nodiscard]] std::optional<FileKind> LastKind() const { return lastKind_; }
  // The folder's own descriptor; none when it could not be listed.
  [[nodiscard]] int Number() const { return stream_ ? dirfd(stream_.get()) : -1; }

 private:
  struct Close {
    void operator()(DIR* stream) const { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
  std::optional<FileKind> lastKind_;
  std::error_code error_;
};

}  // namespace platform
