#include "platform/Users.h"

#include <pwd.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/Files.h"
#include "platform/Processes.h"

namespace platform {
namespace {

struct Account {
  std::string name;
  std::string home;
};

constexpr std::size_t accountBytesLimit = std::size_t{1} << 20U;

// `find` is getpwnam_r or getpwuid_r, with its key.
template <typename Find>
std::optional<Account> FindAccount(Find find) {
  for (std::vector<char> buffer(1024); buffer.size() <= accountBytesLimit; buffer.resize(buffer.size() * 4)) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    const int error = find(&entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) continue;
    if (error != 0 || found == nullptr) return std::nullopt;
    return Account{entry.pw_name, entry.pw_dir};
  }
  return std::nullopt;
}

std::optional<Account> AccountOf(uid_t user) {
  return FindAccount([user](auto... result) { return getpwuid_r(user, result...); });
}

std::optional<Account> AccountOf(const std::string& name) {
  return FindAccount([&name](auto... result) { return getpwnam_r(name.c_str(), result...); });
}

std::optional<std::string> Absolute(const std::optional<std::string>& path) {
  return path && path->starts_with('/') ? path : std::nullopt;
}

}  // namespace

bool IsRootUser() { return getuid() == 0; }

bool HasBorrowedRights() { return getuid() != geteuid() || getgid() != getegid(); }

std::string UserName() {
  const auto account = AccountOf(getuid());
  return account ? account->name : std::to_string(getuid());
}

std::optional<std::string> ConsoleUser() {
  uid_t user = 0;
  if (sd_seat_get_active("seat0", nullptr, &user) < 0) return std::nullopt;
  const auto account = AccountOf(user);
  return account ? std::optional(account->name) : std::nullopt;
}

std::optional<std::string> HomeFolder(const std::optional<std::string>& user) {
  if (!user) {
    if (auto home = Absolute(Environment("HOME"))) return home;
  }
  const auto account = user ? AccountOf(*user) : AccountOf(getuid());
  return account ? Absolute(account->home) : std::nullopt;
}

std::optional<std::string> LibraryFolder() {
  const auto home = HomeFolder();
  if (!home) return std::nullopt;
  std::string library = home->ends_with('/') ? *home + "Library" : *home + "/Library";
  return MakeFolders(library) ? std::nullopt : std::optional(std::move(library));
}

}  // namespace platform
