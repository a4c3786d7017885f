#include "platform/posix/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

bool IsImmutableAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  return status && (status->st_flags & UF_IMMUTABLE) != 0;
}

// An fsync alone leaves it in the drive's cache; some volumes know no more.
bool SyncToDisk(int descriptor) { return fcntl(descriptor, F_FULLFSYNC) == 0 || fsync(descriptor) == 0; }

}  // namespace platform
