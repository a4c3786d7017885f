#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/Files.h"
#include "platform/Result.h"

// What the bodies of Files.h share: the owner of a descriptor, and the one way from a path to a file.
namespace platform {

// Owns a file descriptor, or none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor() { Close(); }

  // Whether there is one; a failed open leaves none, and errno.
  explicit operator bool() const { return number_ >= 0; }
  [[nodiscard]] int Number() const { return number_; }
  // Hands it over to the caller.
  [[nodiscard]] int Release() { return std::exchange(number_, -1); }
  void Close();

 private:
  int number_ = -1;
};

// errno, as an error of the kind that compares with std::errc.
[[nodiscard]] std::error_code LastError();

struct Owner {
  uid_t user;
  gid_t group;
};

// Where a path leads: the folder that *at calls start from, and a name in it, which only calls that do not follow links
// may use. A folder of its own is open for nothing else.
struct Place {
  Descriptor folder;              // none: the working directory
  std::string name;               // a path where the system may walk it alone; "." for the root folder
  std::optional<Owner> newOwner;  // who gets what is made here, when that is not this process's own user

  [[nodiscard]] int Start() const { return folder ? folder.Number() : AT_FDCWD; }
};

// Whether a link in the last place of a path is the thing meant, or what it leads to, where an ordinary user owns both.
// A link of theirs that leads nowhere then counts as nothing. Root follows none.
enum class LastLink { keep, followOwn };

// Every path goes through here. Links on the way are followed, except by root below a folder that is not root's alone,
// where somebody could send it anywhere: there a link or ".." is ELOOP, and what is made belongs to the owner of the
// Library that the way leads through, else to that of the folder. A path that begins with "~" names the home of nobody
// and is missing.
[[nodiscard]] Result<Place> Resolve(const std::string& path, LastLink last = LastLink::keep);

// The folder itself, with "." as the name, as the parent of what is to be done in it.
enum class MissingFolders { fail, make };
[[nodiscard]] Result<Place> ResolveFolder(const std::string& path, MissingFolders missing = MissingFolders::fail);

// Opens without following a link, blocking, or being inherited; `flags` say what for. What is no regular file is
// refused as in ReadFile, and not even opened when it stood there before; with O_DIRECTORY, what is no folder.
[[nodiscard]] Result<Descriptor> OpenAt(int folder, const char* name, int flags, mode_t mode = 0);
// The same of a file to read, with its size as it was opened; EFBIG when that is over the limit.
struct FileToRead {
  Descriptor file;
  std::uint64_t bytes;
};
[[nodiscard]] Result<FileToRead> OpenToRead(int folder, const char* name, std::uint64_t limitBytes);

// As OpenAt, of a file that is made with `mode` when it is absent.
[[nodiscard]] Result<Descriptor> OpenOrMake(const Place& place, int flags, mode_t mode);

// As the free functions without "At".
[[nodiscard]] FileKind KindAt(int folder, const char* name);
[[nodiscard]] Result<std::string> ReadAt(int folder, const char* name, std::uint64_t limitBytes);

// All of it, from the descriptor's own position.
[[nodiscard]] std::error_code WriteAll(int descriptor, std::string_view bytes);

}  // namespace platform
