#include "platform/posix/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace platform {
namespace {

std::optional<struct statx> Look(int folderDescriptor, const char* name) {
  struct statx status {};
  const int result =
      statx(folderDescriptor, name, AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME | STATX_CTIME, &status);
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

bool IsImmutableAt(int folderDescriptor, const char* name) {
  const auto status = Look(folderDescriptor, name);
  return status && (status->stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
}

bool SyncToDisk(int descriptor) { return fsync(descriptor) == 0; }

}  // namespace platform
