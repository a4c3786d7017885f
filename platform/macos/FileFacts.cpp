#include "platform/posix/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

// NSFileCreationDate and NSFileImmutable are these fields, but for the rounding of a date to a double, and are to be
// had for whole paths only.
namespace platform {
namespace {

std::optional<struct stat> Look(int folderDescriptor, const char* name) {
  struct stat status {};
  const int result = fstatat(folderDescriptor, name, &status, AT_SYMLINK_NOFOLLOW);
  return result == 0 ? std::optional(status) : std::nullopt;
}

Time ToTime(const timespec& stamp) {
  return Time(std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec));
}

}  // namespace

// O_SEARCH is younger than the oldest system we run on.
const int searchFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::optional<Time> CreationDateAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  if (!status) return std::nullopt;
  // A file system that keeps no such date says 0 or -1.
  if (status->st_birthtimespec.tv_sec > 0) return ToTime(status->st_birthtimespec);
  return std::min(ToTime(status->st_mtimespec), ToTime(status->st_ctimespec));
}

std::optional<FileStamp> StampAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  if (!status || !S_ISREG(status->st_mode)) return std::nullopt;
  return FileStamp{.device = static_cast<std::uint64_t>(status->st_dev),
                   .number = status->st_ino,
                   .bytes = static_cast<std::uint64_t>(status->st_size),
                   .modified = ToTime(status->st_mtimespec)};
}

bool IsImmutableAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  return status && (status->st_flags & UF_IMMUTABLE) != 0;
}

// Root's new folder changes hands by its name, without following a link: at worst it is another folder of the one who
// gets it.
std::error_code MakeFolderFor(const std::optional<Owner>& owner, int folderDescriptor, const char* name, mode_t mode) {
  if (mkdirat(folderDescriptor, name, mode) != 0) return LastError();
  // A umask may have taken its owner's rights away.
  if (fchmodat(folderDescriptor, name, mode, AT_SYMLINK_NOFOLLOW) != 0) return LastError();
  if (!owner) return {};
  const auto folder = OpenAt(folderDescriptor, name, O_RDONLY | O_DIRECTORY);
  if (!folder) return folder.Error();
  return fchown(folder->Number(), owner->user, owner->group) == 0 ? std::error_code() : LastError();
}

Result<Descriptor> OpenUnnamed(int /*folderDescriptor*/) { return std::errc::not_supported; }

std::error_code NameUnnamed(int /*file*/, int /*folderDescriptor*/, const char* /*name*/) {
  return std::make_error_code(std::errc::not_supported);
}

bool RenameToAbsent(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  return renameatx_np(oldFolder, oldName, newFolder, newName, RENAME_EXCL) == 0;
}

// An fsync alone leaves it in the drive's cache; some volumes know no more.
bool SyncToDisk(int descriptor) {
  while (fcntl(descriptor, F_FULLFSYNC) != 0 && fsync(descriptor) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

}  // namespace platform
