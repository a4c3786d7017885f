#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/contract/Scene.h"

namespace scene {
namespace {
std::string home;
pid_t host = 0;
}  // namespace

void Begin() {
  home = std::filesystem::temp_directory_path() / "contract-XXXXXX";
  ASSERT_NE(mkdtemp(home.data()), nullptr);
  setenv("HOME", home.c_str(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  unsetenv("DISPLAY");
}
void End() {
  if (host > 0 && kill(host, SIGKILL) == 0) waitpid(host, nullptr, 0);
  host = 0;
  std::error_code ignored;
  std::filesystem::remove_all(home, ignored);
}
std::string Home() { return home; }
void MakeLink(const std::string& target, const std::string& path) { std::filesystem::create_symlink(target, path); }
void MakeFifo(const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }
unsigned ModeOf(const std::string& path) {
  return static_cast<unsigned>(std::filesystem::symlink_status(path).permissions());
}
std::string Program() { return "/bin/true"; }
std::int32_t HostId() {
  host = fork();
  while (host == 0) pause();
  return host;
}

}  // namespace scene
