#include "platform/posix/FileFacts.h"

#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

namespace platform {
namespace {

std::optional<struct statx> Look(int folderDescriptor, const char* name) {
  struct statx status {};
  const int result = statx(folderDescriptor, name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &status);
  return result == 0 ? std::optional(status) : std::nullopt;
}

Time ToTime(const struct statx_timestamp& stamp) {
  return Time(std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec));
}

}  // namespace

const int searchFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

std::optional<Time> CreationDateAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  if (!status) return std::nullopt;
  if ((status->stx_mask & STATX_BTIME) != 0) return ToTime(status->stx_btime);
  return std::min(ToTime(status->stx_mtime), ToTime(status->stx_ctime));
}

std::optional<FileStamp> StampAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  if (!status || !S_ISREG(status->stx_mode)) return std::nullopt;
  return FileStamp{.device = makedev(status->stx_dev_major, status->stx_dev_minor),
                   .number = status->stx_ino,
                   .bytes = status->stx_size,
                   .modified = ToTime(status->stx_mtime)};
}

bool IsImmutableAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  return status && (status->stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
}

namespace {

// While it lives, this thread's files are `owner`'s, and it may do with files what `owner` may.
class ActingAs {
 public:
  explicit ActingAs(Owner owner)
      : group_(static_cast<gid_t>(setfsgid(owner.group))), user_(static_cast<uid_t>(setfsuid(owner.user))) {}
  ActingAs(const ActingAs&) = delete;
  ActingAs& operator=(const ActingAs&) = delete;
  ~ActingAs() {
    setfsuid(user_);
    setfsgid(group_);
  }

 private:
  gid_t group_;
  uid_t user_;
};

}  // namespace

// A change of owner afterwards would open the folder by its name, at which another one may stand by then.
std::error_code MakeFolderFor(const std::optional<Owner>& owner, int folderDescriptor, const char* name, mode_t mode) {
  std::optional<ActingAs> act;
  if (owner) act.emplace(*owner);
  if (mkdirat(folderDescriptor, name, mode) != 0) return LastError();
  // A umask may have taken its owner's rights away. By its name, since it cannot be opened then; with the owner's
  // powers alone, so that a link put in its place leads to nothing but the owner's own.
  struct stat status {};
  const bool isUsable =
      fstatat(folderDescriptor, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || (status.st_mode & 0700U) == 0700U;
  return isUsable || fchmodat(folderDescriptor, name, mode, 0) == 0 ? std::error_code() : LastError();
}

Result<Descriptor> OpenUnnamed(int folderDescriptor) {
  Descriptor file(openat(folderDescriptor, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
  if (!file) return LastError();
  return file;
}

// Naming the descriptor itself is a privilege on kernels before 6.10, naming it by its entry in /proc never was.
std::error_code NameUnnamed(int file, int folderDescriptor, const char* name) {
  const std::string entry = "/proc/self/fd/" + std::to_string(file);
  if (linkat(AT_FDCWD, entry.c_str(), folderDescriptor, name, AT_SYMLINK_FOLLOW) == 0) return {};
  if (errno != ENOENT) return LastError();
  return linkat(file, "", folderDescriptor, name, AT_EMPTY_PATH) == 0 ? std::error_code() : LastError();
}

bool RenameToAbsent(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  return renameat2(oldFolder, oldName, newFolder, newName, RENAME_NOREPLACE) == 0;
}

bool SyncToDisk(int descriptor) {
  while (fsync(descriptor) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace platform
