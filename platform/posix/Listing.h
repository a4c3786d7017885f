#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/posix/Descriptor.h"

namespace platform {

// Reads the names in an open folder, "." and ".." left out, and closes it.
class Listing {
 public:
  explicit Listing(Descriptor folder);

  // None at the end and after a failure.
  [[nodiscard]] std::optional<std::string> Next();
  [[nodiscard]] bool Next(std::string& name);
  [[nodiscard]] std::error_code Error() const { return error_; }

  // Of an entry that Next has just returned, as the system told along with its name, so that no call is spent on it;
  // none of every other, and when it did not say.
  [[nodiscard]] std::optional<FileKind> KnownKind(std::string_view name) const;
  // The folder's own descriptor; none when it could not be listed.
  [[nodiscard]] int Number() const { return stream_ ? dirfd(stream_.get()) : -1; }

 private:
  struct Close {
    void operator()(DIR* stream) const { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
  const dirent* last_ = nullptr;  // the stream's own, and valid until it moves on
  std::error_code error_;
};

}  // namespace platform
