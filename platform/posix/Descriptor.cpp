#include "platform/posix/Descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>
#include <vector>

#include "platform/Users.h"
#include "platform/posix/FileFacts.h"

namespace platform {
namespace {

using Names = std::vector<std::string>;

struct Route {
  bool absolute = false;
  Names names;
};

constexpr int maxAttempts = 16;
constexpr std::string_view libraryName = "Library";

// This process never changes its user.
bool IsRoot() {
  static const bool isRoot = IsRootUser();
  return isRoot;
}

bool IsAbsolute(std::string_view path) { return path.starts_with('/'); }

// The first component that leads anywhere, which is taken off; empty when there is none.
std::string_view TakeName(std::string_view& path) {
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    if (!name.empty() && name != ".") return name;
  }
  return {};
}

Route RouteOf(std::string_view path) {
  Route route{IsAbsolute(path), {}};
  for (auto name = TakeName(path); !name.empty(); name = TakeName(path)) route.names.emplace_back(name);
  return route;
}

// What the system can walk alone, since every link may be followed. None for root, who may not follow every one, and
// when the last name leads upwards: that is for the caller to see.
std::optional<std::string> PlainPath(std::string_view path) {
  if (IsRoot()) return std::nullopt;
  std::string plain(IsAbsolute(path) ? "/" : "");
  plain.reserve(path.size());
  std::string_view last;
  for (auto name = TakeName(path); !name.empty(); name = TakeName(path)) {
    if (!last.empty()) plain += '/';
    plain += last = name;
  }
  const bool isPlain = !last.empty() && last != ".." && plain.size() < PATH_MAX;
  return isPlain ? std::optional(std::move(plain)) : std::nullopt;
}

// The text of a link; empty when it cannot be read.
std::string LinkText(const std::string& path) {
  std::string text(PATH_MAX, '\0');
  const ssize_t size = readlink(path.c_str(), text.data(), text.size());
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return text;
}

// Where a chain of this user's own links leads; `path` itself as soon as a link or what it leads to is another's.
std::string FollowOwnLinks(const std::string& path) {
  std::string target = path;
  for (int links = 0; links < maxAttempts; ++links) {
    struct stat status {};
    if (lstat(target.c_str(), &status) != 0) return errno == ENOENT ? target : path;
    if (status.st_uid != geteuid() && links > 0) return path;
    if (!S_ISLNK(status.st_mode)) return target;
    if (status.st_uid != geteuid()) return path;
    const std::string text = LinkText(target);
    if (text.empty()) return path;
    const std::size_t folderEnd = IsAbsolute(text) ? 0 : target.find_last_of('/') + 1;
    target.resize(folderEnd);
    target += text;
  }
  return path;
}

bool IsBelow(const Route& route, std::size_t depth, const Names& folder) {
  return route.absolute && depth > folder.size() && std::equal(folder.begin(), folder.end(), route.names.begin());
}

mode_t NewFolderMode(const Route& route, std::size_t depth, bool guarded) {
  const auto home = HomeFolder();
  return guarded || (home && IsBelow(route, depth, RouteOf(*home).names)) ? 0700 : 0755;
}

bool IsLink(int folder, const char* name) {
  struct stat status {};
  return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// A folder with an access list shows the list's mask in place of its group's rights: no list can give a right that the
// mask withholds.
bool OthersMayWrite(mode_t mode) { return (mode & (S_IWGRP | S_IWOTH)) != 0; }

// What root must know of the folders on its way: whoever may write to one of them could have planted what lies below.
class Guard {
 public:
  // The last folder entered is the one `place` has open.
  std::error_code Enter(Place& place, std::string_view name) {
    if (!isRoot_ || isInLibrary_) return {};
    struct stat status {};
    if (fstat(place.folder.Number(), &status) != 0) return LastError();
    const bool isForeign = status.st_uid != 0;
    const bool isSticky = (status.st_mode & S_ISVTX) != 0;
    isShared_ = OthersMayWrite(status.st_mode);
    isOn_ = isOn_ || isForeign || (isShared_ && !isSticky);
    isInLibrary_ = isOn_ && name == libraryName;
    place.newOwner = isForeign ? std::optional(Owner{status.st_uid, status.st_gid}) : std::nullopt;
    return {};
  }

  [[nodiscard]] bool IsOn() const { return isOn_; }
  // In a shared sticky folder anybody can plant a link, but nobody a folder of root's.
  [[nodiscard]] bool MayFollowLink() const { return !isOn_ && !isShared_; }

 private:
  const bool isRoot_ = IsRoot();
  bool isOn_ = false;
  bool isShared_ = false;
  bool isInLibrary_ = false;
};

// Whether root was led to a file by a name that somebody else may have given it.
bool IsPlanted(int folder, const struct stat& file) {
  if (file.st_nlink < 2 || !IsRoot()) return false;
  struct stat status {};
  return fstat(folder, &status) != 0 || status.st_uid != file.st_uid || OthersMayWrite(status.st_mode);
}

std::error_code GiveTo(const std::optional<Owner>& owner, int descriptor) {
  return !owner || fchown(descriptor, owner->user, owner->group) == 0 ? std::error_code() : LastError();
}

// Why a file that stands in the folder is not to be opened.
std::error_code RefusalOf(int folder, const struct stat& file) {
  if (S_ISLNK(file.st_mode)) return std::make_error_code(std::errc::too_many_symbolic_link_levels);
  if (S_ISDIR(file.st_mode)) return std::make_error_code(std::errc::is_a_directory);
  if (!S_ISREG(file.st_mode)) return std::make_error_code(std::errc::no_such_device);
  return IsPlanted(folder, file) ? std::make_error_code(std::errc::too_many_links) : std::error_code();
}

// Of what was opened, and is no folder, `status` tells.
Result<Descriptor> OpenGuarded(int folder, const char* name, int flags, mode_t mode, struct stat& status) {
  const bool wantsFile = (flags & O_DIRECTORY) == 0;
  // To open a FIFO or a device is to be noticed behind it.
  if (wantsFile && (flags & O_CREAT) == 0 && fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    if (const auto error = RefusalOf(folder, status)) return error;
  }
  Descriptor opened;
  do {
    opened = Descriptor(openat(folder, name, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  } while (!opened && errno == EINTR);
  if (!opened) {
    const std::error_code error = LastError();
    // Of a socket, one system says this and the other that.
    if (error == std::errc::no_such_device_or_address || error == std::errc::operation_not_supported) {
      return std::errc::no_such_device;
    }
    if (error != std::errc::not_a_directory || !IsLink(folder, name)) return error;
    return std::errc::too_many_symbolic_link_levels;
  }
  if (!wantsFile) return opened;
  // Another may have come to stand there in between.
  if (fstat(opened.Number(), &status) != 0) return LastError();
  if (const auto error = RefusalOf(folder, status)) return error;
  return opened;
}

Result<Descriptor> Step(int folder, const std::string& name, bool mayBeLink) {
  if (!mayBeLink) {
    if (name == "..") return std::errc::too_many_symbolic_link_levels;
    return OpenAt(folder, name.c_str(), searchFlags);
  }
  Descriptor next(openat(folder, name.c_str(), searchFlags));
  if (!next) return LastError();
  return next;
}

// As good when another process makes it first.
Result<Descriptor> MakeStep(const Place& place, const std::string& name, mode_t mode) {
  const int folder = place.folder.Number();
  if (const auto error = MakeFolderFor(place.newOwner, folder, name.c_str(), mode)) {
    if (error != std::errc::file_exists) return error;
  } else if (const auto parent = OpenAt(folder, ".", O_RDONLY | O_DIRECTORY)) {
    // What is synced into the new folder must not go with the folder's own name. No reason to do without the folder.
    static_cast<void>(SyncToDisk(parent->Number()));
  }
  return Step(folder, name, false);
}

// The folder that the first `depth` components lead to.
Result<Place> Walk(const Route& route, std::size_t depth, MissingFolders missing) {
  Guard guard;
  Place place{Descriptor(open(route.absolute ? "/" : ".", searchFlags)), ".", {}};
  if (!place.folder) return LastError();
  if (const auto error = guard.Enter(place, {})) return error;
  for (std::size_t i = 0; i < depth; ++i) {
    const std::string& name = route.names[i];
    auto next = Step(place.folder.Number(), name, guard.MayFollowLink());
    if (next.Error() == std::errc::no_such_file_or_directory && missing == MissingFolders::make) {
      next = MakeStep(place, name, NewFolderMode(route, i + 1, guard.IsOn()));
    }
    if (!next) return next.Error();
    place.folder = std::move(*next);
    if (const auto error = guard.Enter(place, name)) return error;
  }
  return place;
}

// Also of what would be cut short at a NUL.
bool NamesNothing(const std::string& path) {
  return path.empty() || path.front() == '~' || path.find('\0') != std::string::npos;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    Close();
    number_ = other.Release();
  }
  return *this;
}

void Descriptor::Close() {
  if (number_ >= 0) close(Release());
}

std::error_code LastError() { return {errno, std::generic_category()}; }

Result<Place> Resolve(const std::string& path, LastLink last) {
  if (NamesNothing(path)) return std::errc::no_such_file_or_directory;
  // Each access to a queue of many files is spared the opening of its folder.
  if (const auto plain = PlainPath(path)) {
    return Place{{}, last == LastLink::followOwn ? FollowOwnLinks(*plain) : *plain, {}};
  }
  const Route route = RouteOf(path);
  if (route.names.empty()) return Walk(route, 0, MissingFolders::fail);
  auto place = Walk(route, route.names.size() - 1, MissingFolders::fail);
  if (place) place->name = route.names.back();
  return place;
}

std::string TargetOf(const std::string& path) {
  const auto plain = NamesNothing(path) ? std::nullopt : PlainPath(path);
  if (!plain) return path;
  std::string target = FollowOwnLinks(*plain);
  const std::string folder = target.substr(0, target.find_last_of('/') + 1);
  return target == *plain || access(folder.empty() ? "." : folder.c_str(), F_OK) != 0 ? path : target;
}

Result<Place> ResolveFolder(const std::string& path, MissingFolders missing) {
  if (NamesNothing(path)) return std::errc::no_such_file_or_directory;
  const auto plain = missing == MissingFolders::make ? std::nullopt : PlainPath(path);
  if (plain) {
    Place place{Descriptor(open(plain->c_str(), searchFlags)), ".", {}};
    return place.folder ? Result<Place>(std::move(place)) : LastError();
  }
  const Route route = RouteOf(path);
  return Walk(route, route.names.size(), missing);
}

Result<Descriptor> OpenAt(int folder, const char* name, int flags, mode_t mode) {
  struct stat status {};
  return OpenGuarded(folder, name, flags, mode, status);
}

Result<FileToRead> OpenToRead(int folder, const char* name, std::uint64_t limitBytes) {
  struct stat status {};
  auto file = OpenGuarded(folder, name, O_RDONLY, 0, status);
  if (!file) return file.Error();
  const auto bytes = static_cast<std::uint64_t>(status.st_size);
  if (bytes > limitBytes) return std::errc::file_too_large;
  return FileToRead{std::move(*file), bytes};
}

Result<Descriptor> OpenOrMake(const Place& place, int flags, mode_t mode) {
  Result<Descriptor> opened = std::errc::no_such_file_or_directory;
  for (int i = 0; i < maxAttempts && opened.Error() == std::errc::no_such_file_or_directory; ++i) {
    // Only what is certain to be new changes hands.
    auto made = OpenAt(place.Start(), place.name.c_str(), flags | O_CREAT | O_EXCL, mode);
    if (made) {
      // Whatever the umask says.
      if (fchmod(made->Number(), mode) != 0) return LastError();
      if (const auto error = GiveTo(place.newOwner, made->Number())) return error;
      return made;
    }
    if (made.Error() != std::errc::file_exists) return made;
    opened = OpenAt(place.Start(), place.name.c_str(), flags);
  }
  return opened;
}

std::error_code WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return LastError();
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

}  // namespace platform
