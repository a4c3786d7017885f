#include "platform/Diagnosis.h"

#include <fcntl.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>

#include "platform/Files.h"
#include "platform/linux/HostExit.h"
#include "platform/linux/ProcessTable.h"
#include "platform/posix/Descriptor.h"

namespace platform {
namespace {

constexpr int trialStatus = 7;

std::string NameOf(uid_t user) {
  const passwd* entry = getpwuid(user);
  return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::optional<struct stat> StatusOf(const Place& place) {
  struct stat status {};
  const int result = fstatat(place.Start(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  return result == 0 ? std::optional(status) : std::nullopt;
}

std::optional<std::int32_t> Decimal(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// As /proc/locks writes it: two hexadecimal numbers and a decimal one.
std::string LockedFile(const struct stat& status) {
  std::ostringstream text;
  text << std::hex;
  text.fill('0');
  text.width(2);
  text << major(status.st_dev) << ':';
  text.width(2);
  text << minor(status.st_dev) << ':' << std::dec << status.st_ino;
  return text.str();
}

std::vector<std::string> ArgumentsOf(const std::string& processId) {
  std::ifstream file("/proc/" + processId + "/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

}  // namespace

std::optional<Access> AccessOf(const std::string& path) {
  const auto place = Resolve(path);
  const auto status = place ? StatusOf(*place) : std::nullopt;
  if (!status) return std::nullopt;
  const auto may = [&place](int mode) {
    return faccessat(place->Start(), place->name.c_str(), mode, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0;
  };
  return Access{.permissions = status->st_mode & 0777U,
                .owner = NameOf(status->st_uid),
                .isOwn = status->st_uid == geteuid(),
                .isReadable = may(R_OK),
                .isWritable = may(W_OK),
                .isExecutable = may(X_OK)};
}

bool IsProgram(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

Result<Space> SpaceAt(const std::string& path) {
  struct statvfs space {};
  if (statvfs(path.c_str(), &space) != 0) return LastError();
  // Some file systems make files as they need them, and count none.
  const std::uint64_t freeFiles = space.f_files == 0 ? UINT64_MAX : space.f_favail;
  return Space{.freeBytes = std::uint64_t{space.f_bavail} * space.f_frsize, .freeFiles = freeFiles};
}

std::optional<std::int32_t> LockHolder(const std::string& path) {
  const auto place = Resolve(path);
  const auto status = place ? StatusOf(*place) : std::nullopt;
  if (!status) return std::nullopt;
  const std::string wanted = LockedFile(*status);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, nature, mode, holder, file;
    if (words >> number >> kind >> nature >> mode >> holder >> file && kind == "FLOCK" && file == wanted) {
      return Decimal(holder);
    }
  }
  return std::nullopt;
}

bool TellsExitStatus() {
  const pid_t child = fork();
  if (child == 0) _exit(trialStatus);
  if (child < 0) return false;
  // Reaped before it is asked for: nothing but the kernel's own memory of it can tell.
  HostExit watch;
  watch.Watch(child);
  waitpid(child, nullptr, 0);
  return watch.TakeStatus(POLLIN | POLLHUP) == trialStatus;
}

Lookup LookUp(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
    return {.addresses = {}, .error = gai_strerror(error)};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  Lookup lookup;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    char text[NI_MAXHOST];
    if (getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0) {
      lookup.addresses.emplace_back(text);
    }
  }
  return lookup;
}

std::vector<RunningProgram> RunningPrograms(const std::string& name) {
  std::vector<RunningProgram> programs;
  auto processes = Folder::Open("/proc");
  if (!processes) return programs;
  while (const auto entry = processes->Next()) {
    const auto id = Decimal(*entry);
    if (!id || ProcessName(*id) != name) continue;
    const auto access = AccessOf("/proc/" + *entry);
    if (access && access->isOwn) programs.push_back({.processId = *id, .arguments = ArgumentsOf(*entry)});
  }
  return programs;
}

}  // namespace platform
