#include "reliability/RootWorld.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <system_error>

#include "demo/Program.h"

namespace reliability {
namespace {

namespace fs = std::filesystem;

bool MakeSeat(uid_t user) {
  fs::create_directories("/run/systemd/seats");
  std::ofstream seat("/run/systemd/seats/seat0");
  seat << "IS_SEAT0=1\nACTIVE=c1\nACTIVE_UID=" << user << "\n";
  return seat.flush().good();
}

// Of the calling process, which has no other thread.
bool EnterNamespace(const RootWorld& world) {
  const std::string accounts = world.folder / "passwd";
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(world.folder.c_str(), world.folder.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
         mount("none", "/run", "tmpfs", 0, nullptr) == 0 && MakeSeat(demo::OrdinaryAccount().user) &&
         mount(accounts.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0 &&
         mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0 && chdir("/") == 0;
}

[[noreturn]] void Become(const RootWorld& world, std::vector<std::string> arguments,
                         const std::map<std::string, std::string>& environment) {
  std::vector<std::string> variables;
  variables.reserve(environment.size());
  for (const auto& [name, value] : environment) variables.emplace_back(name).append("=").append(value);
  std::vector<char*> argumentPointers, variablePointers;
  for (auto& argument : arguments) argumentPointers.push_back(argument.data());
  for (auto& variable : variables) variablePointers.push_back(variable.data());
  argumentPointers.push_back(nullptr);
  variablePointers.push_back(nullptr);
  prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
  if (EnterNamespace(world)) execve(argumentPointers[0], argumentPointers.data(), variablePointers.data());
  _exit(127);
}

std::string Stamp(const timespec& time) { return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec); }

}  // namespace

RootWorld MakeRootWorld(const demo::Sandbox& sandbox, const fs::path& folder) {
  RootWorld world{.folder = folder, .home = folder / "home", .own = folder / "root", .outside = folder / "outside"};
  for (const fs::path& path : {world.folder, world.own, world.outside}) fs::create_directory(path);
  sandbox.Put(world.home / "letter", "");
  fs::create_directories(world.own / "Library/Logs/Malvex/CrDebugLogs");
  std::ofstream(world.own / "Library/Logs/Malvex/CrDebugLogs/generatecrlogornot.txt") << '\n';
  const demo::Account account = demo::OrdinaryAccount();
  std::ofstream(world.folder / "passwd") << "root:x:0:0::/root:/bin/sh\nnobody:x:" << account.user << ":"
                                         << account.group << "::" << world.home.string() << ":/bin/sh\n";
  return world;
}

pid_t StartRootDaemon(const demo::Sandbox& sandbox, const RootWorld& world, std::vector<std::string> arguments) {
  auto environment = sandbox.environment;
  environment["HOME"] = world.own;
  const pid_t daemon = fork();
  if (daemon == 0) Become(world, std::move(arguments), environment);
  if (daemon < 0) throw std::system_error(errno, std::generic_category(), "fork");
  return daemon;
}

std::string WhyNoRootDaemon() {
  if (getuid() != 0) return "needs root, to plant what root must not follow";
  const pid_t trial = fork();
  if (trial == 0) _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
  int status = 0;
  if (trial < 0 || waitpid(trial, &status, 0) != trial || status != 0) return "needs a mount namespace of its own";
  return {};
}

Witness::Witness(fs::path root) : root_(std::move(root)) {
  static_cast<void>(Look());
  // So long ago that the first to read it is noted down.
  const timespec times[] = {{.tv_sec = 1, .tv_nsec = 0}, {.tv_sec = 0, .tv_nsec = UTIME_OMIT}};
  before_ = Look();
  for (const auto& [path, seen] : before_) utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

std::string Witness::Complaint() const {
  for (const auto& [path, seen] : before_) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return path + " is gone";
    if (status.st_atim.tv_sec != 1) return path + " was read";
  }
  const auto after = Look();
  for (const auto& [path, seen] : after) {
    const auto known = before_.find(path);
    if (known == before_.end()) return path + " is new";
    if (known->second != seen) return path + " changed";
  }
  return {};
}

std::map<std::string, std::string> Witness::Look() const {
  std::map<std::string, std::string> seen;
  const auto look = [&seen](const fs::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return;
    std::string text = std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + " " +
                       std::to_string(status.st_gid) + " " + Stamp(status.st_mtim);
    if (S_ISREG(status.st_mode)) text += demo::ContentOf(path);
    seen.emplace(path, std::move(text));
  };
  look(root_);
  for (const auto& entry : fs::recursive_directory_iterator(root_)) look(entry.path());
  return seen;
}

}  // namespace reliability
