#include "platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/posix/Descriptor.h"
#include "platform/posix/FileFacts.h"
#include "platform/posix/Listing.h"

namespace platform {
namespace {

constexpr int maxTreeDepth = 64;

bool IsSelfOrParent(const std::string& name) { return name == "." || name == ".."; }

// Reads to the end and asks once more, so that a file that grows is noticed.
Result<std::string> ReadToEnd(int file, std::uint64_t expectedBytes, std::uint64_t limitBytes) {
  std::string bytes;
  std::size_t used = 0;
  while (true) {
    if (used == bytes.size()) bytes.resize(std::min(limitBytes, std::max<std::uint64_t>(expectedBytes, 2 * used)) + 1);
    const ssize_t count = read(file, bytes.data() + used, bytes.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return LastError();
    used += static_cast<std::size_t>(count);
    if (used > limitBytes) return std::errc::file_too_large;
    if (count == 0) break;
  }
  bytes.resize(used);
  return bytes;
}

std::error_code RemoveTreeAt(int parent, const std::string& name, dev_t device, int depth);

std::error_code RemoveEntry(int folder, const std::string& name, dev_t device, int depth) {
  if (KindAt(folder, name.c_str()) == FileKind::folder) return RemoveTreeAt(folder, name, device, depth);
  return unlinkat(folder, name.c_str(), 0) == 0 ? std::error_code() : LastError();
}

// Goes on after a failure, which is then the first one reported.
std::error_code RemoveTreeAt(int parent, const std::string& name, dev_t device, int depth) {
  if (depth > maxTreeDepth) return std::make_error_code(std::errc::filename_too_long);
  auto folder = OpenAt(parent, name.c_str(), O_RDONLY | O_DIRECTORY);
  if (!folder) return folder.Error();
  struct stat status {};
  if (fstat(folder->Number(), &status) != 0) return LastError();
  if (depth > 0 && status.st_dev != device) return std::make_error_code(std::errc::cross_device_link);

  Listing listing(std::move(*folder));
  std::vector<std::string> names;
  while (auto entry = listing.Next()) names.push_back(std::move(*entry));
  std::error_code failure = listing.Error();
  for (const auto& entry : names) {
    const auto error = RemoveEntry(listing.Number(), entry, status.st_dev, depth + 1);
    if (!failure) failure = error;
  }
  if (failure) return failure;
  return unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 ? std::error_code() : LastError();
}

}  // namespace

FileKind KindAt(int folder, const char* name) {
  struct stat status {};
  if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return FileKind::absent;
  if (S_ISREG(status.st_mode)) return FileKind::regular;
  return S_ISDIR(status.st_mode) ? FileKind::folder : FileKind::other;
}

FileKind KindOf(const std::string& path) {
  const auto place = Resolve(path, LastLink::followOwn);
  return place ? KindAt(place->Start(), place->name.c_str()) : FileKind::absent;
}

std::optional<Time> CreationDate(const std::string& path) {
  const auto place = Resolve(path, LastLink::followOwn);
  return place ? CreationDateAt(place->Start(), place->name.c_str()) : std::nullopt;
}

std::optional<FileStamp> StampOf(const std::string& path) {
  const auto place = Resolve(path);
  return place ? StampAt(place->Start(), place->name.c_str()) : std::nullopt;
}

bool IsImmutable(const std::string& path) {
  const auto place = Resolve(path, LastLink::followOwn);
  return place && IsImmutableAt(place->Start(), place->name.c_str());
}

Result<std::string> ReadAt(int folder, const char* name, std::uint64_t limitBytes) {
  const auto opened = OpenToRead(folder, name, limitBytes);
  if (!opened) return opened.Error();
  return ReadToEnd(opened->file.Number(), opened->bytes, limitBytes);
}

Result<std::string> ReadFile(const std::string& path, std::uint64_t limitBytes) {
  const auto place = Resolve(path, LastLink::followOwn);
  if (!place) return place.Error();
  return ReadAt(place->Start(), place->name.c_str(), limitBytes);
}

std::error_code MakeFolders(const std::string& path) {
  return ResolveFolder(TargetOf(path), MissingFolders::make).Error();
}

std::error_code RemoveFile(const std::string& path) {
  const auto place = Resolve(path);
  if (!place) return place.Error();
  return unlinkat(place->Start(), place->name.c_str(), 0) == 0 ? std::error_code() : LastError();
}

std::error_code RemoveTree(const std::string& path) {
  const auto place = Resolve(path);
  if (!place) return place.Error();
  if (IsSelfOrParent(place->name)) return std::make_error_code(std::errc::invalid_argument);
  return RemoveTreeAt(place->Start(), place->name, 0, 0);
}

std::error_code SyncFolder(const std::string& path) {
  const auto place = ResolveFolder(path);
  if (!place) return place.Error();
  const auto folder = OpenAt(place->Start(), ".", O_RDONLY | O_DIRECTORY);
  if (!folder) return folder.Error();
  // EINVAL: a file system whose folders need no such thing.
  return SyncToDisk(folder->Number()) || errno == EINVAL ? std::error_code() : LastError();
}

}  // namespace platform
