#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/Files.h"
#include "platform/Processes.h"
#include "platform/Users.h"
#include "tests/contract/Scene.h"

namespace {

std::string Await(const std::string& path) {
  for (int i = 0; i < 300 && platform::KindOf(path) == platform::FileKind::absent; ++i) usleep(100'000);
  const auto text = platform::ReadFile(path, 1000);
  return text ? *text : "nothing";
}

pid_t StartDaemon(std::int32_t host, const std::string& reporter) {
  std::vector<std::string> arguments(31);
  arguments[0] = platform::ProgramFolder() + "/CRDaemon";
  arguments[1] = std::to_string(host);
  arguments[2] = "Photo";
  arguments[5] = reporter;
  std::vector<char*> pointers;
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t daemon = 0;
  return posix_spawn(&daemon, pointers[0], nullptr, nullptr, pointers.data(), environ) == 0 ? daemon : 0;
}

// The same core, over the Mac's bodies: its notices, property lists, process table, preferences and tasks.
TEST_F(Contract, TheDaemonTakesACrashToTheReporter) {
  setenv("CONSOLE_USER", platform::UserName().c_str(), 1);
  const std::int32_t host = scene::HostId();
  std::ofstream(Path("reporter")) << "#!/bin/sh\necho $# $2 ${16} >~/new && mv ~/new ~/told\n";
  std::filesystem::permissions(Path("reporter"), std::filesystem::perms::owner_all);
  const pid_t daemon = StartDaemon(host, Path("reporter"));
  ASSERT_GT(daemon, 0);
  Await(Path("Library/Preferences/com.malvex.crashreporter.plist"));
  std::ofstream(Path("Library/Logs/DiagnosticReports/Photo-1.ips")) << "{}\n{\"pid\" : " << host << "}";
  scene::KillHost(host, SIGKILL);

  EXPECT_EQ(Await(Path("told")), "24 Photo " + std::to_string(SIGKILL) + "\n");
  int status = -1;
  EXPECT_EQ(waitpid(daemon, &status, 0), daemon);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(std::filesystem::is_empty(Path("Library/Logs/CrashReporter/Ingest")));
}

}  // namespace
