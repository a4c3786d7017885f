#include "platform/posix/Descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
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
constexpr std::size_t noGuard = std::numeric_limits<std::size_t>::max();

Route RouteOf(std::string_view path) {
  Route route{!path.empty() && path.front() == '/', {}};
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    if (!name.empty() && name != ".") route.names.emplace_back(name);
  }
  return route;
}

bool IsBelow(const Route& route, std::size_t depth, const Names& folder) {
  return route.absolute && depth > folder.size() && std::equal(folder.begin(), folder.end(), route.names.begin());
}

std::optional<Names> HomeOf(const std::optional<std::string>& user) {
  const auto home = HomeFolder(user);
  return home ? std::optional(RouteOf(*home).names) : std::nullopt;
}

// How many components may be links: those down to the home of the console user in whose Library this root process
// works.
std::size_t TrustedDepth(const Route& route) {
  static const auto guardedHome = []() -> std::optional<Names> {
    const auto user = IsRootUser() ? ConsoleUser() : std::nullopt;
    return user ? HomeOf(user) : std::nullopt;
  }();
  if (!guardedHome || !IsBelow(route, route.names.size(), *guardedHome)) return noGuard;
  return route.names[guardedHome->size()] == "Library" ? guardedHome->size() : noGuard;
}

mode_t NewFolderMode(const Route& route, std::size_t depth, bool guarded) {
  const auto home = HomeOf({});
  return guarded || (home && IsBelow(route, depth, *home)) ? 0700 : 0755;
}

bool IsLink(int folder, const char* name) {
  struct stat status {};
  return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

std::optional<Owner> OwnerOf(int folder) {
  struct stat status {};
  if (fstat(folder, &status) != 0) return std::nullopt;
  return Owner{status.st_uid, status.st_gid};
}

std::error_code GiveTo(const std::optional<Owner>& owner, int descriptor) {
  return !owner || fchown(descriptor, owner->user, owner->group) == 0 ? std::error_code() : LastError();
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
  const bool made = mkdirat(place.folder.Number(), name.c_str(), mode) == 0;
  if (!made && errno != EEXIST) return LastError();
  if (!made || !place.newOwner) return Step(place.folder.Number(), name, false);
  auto next = OpenAt(place.folder.Number(), name.c_str(), O_RDONLY | O_DIRECTORY);
  if (!next) return next;
  if (const auto error = GiveTo(place.newOwner, next->Number())) return error;
  return next;
}

// The folder that the first `depth` components lead to.
Result<Place> Walk(const Route& route, std::size_t depth, MissingFolders missing) {
  const std::size_t trusted = TrustedDepth(route);
  Place place{Descriptor(open(route.absolute ? "/" : ".", searchFlags)), ".", {}};
  if (!place.folder) return LastError();
  for (std::size_t i = 0;; ++i) {
    // The home's owner while the Library is still to be made, then the Library's own.
    if (i >= trusted && i - trusted <= 1) place.newOwner = OwnerOf(place.folder.Number());
    if (i == depth) return place;
    auto next = Step(place.folder.Number(), route.names[i], i < trusted);
    if (next.Error() == std::errc::no_such_file_or_directory && missing == MissingFolders::make) {
      next = MakeStep(place, route.names[i], NewFolderMode(route, i + 1, i >= trusted));
    }
    if (!next) return next.Error();
    place.folder = std::move(*next);
  }
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

Result<Place> Resolve(const std::string& path) {
  if (NamesNothing(path)) return std::errc::no_such_file_or_directory;
  const Route route = RouteOf(path);
  if (route.names.empty()) return Walk(route, 0, MissingFolders::fail);
  auto place = Walk(route, route.names.size() - 1, MissingFolders::fail);
  if (place) place->name = route.names.back();
  return place;
}

Result<Place> ResolveFolder(const std::string& path, MissingFolders missing) {
  if (NamesNothing(path)) return std::errc::no_such_file_or_directory;
  const Route route = RouteOf(path);
  return Walk(route, route.names.size(), missing);
}

Result<Descriptor> OpenAt(int folder, const char* name, int flags, mode_t mode) {
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
  if ((flags & O_DIRECTORY) != 0) return opened;
  struct stat status {};
  if (fstat(opened.Number(), &status) != 0) return LastError();
  if (S_ISDIR(status.st_mode)) return std::errc::is_a_directory;
  if (!S_ISREG(status.st_mode)) return std::errc::no_such_device;
  return opened;
}

Result<Descriptor> OpenOrMake(const Place& place, int flags, mode_t mode) {
  Result<Descriptor> opened = std::errc::no_such_file_or_directory;
  for (int i = 0; i < maxAttempts && opened.Error() == std::errc::no_such_file_or_directory; ++i) {
    // Only what is certain to be new changes hands.
    auto made = OpenAt(place.folder.Number(), place.name.c_str(), flags | O_CREAT | O_EXCL, mode);
    if (made) {
      if (const auto error = GiveTo(place.newOwner, made->Number())) return error;
      return made;
    }
    if (made.Error() != std::errc::file_exists) return made;
    opened = OpenAt(place.folder.Number(), place.name.c_str(), flags);
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
