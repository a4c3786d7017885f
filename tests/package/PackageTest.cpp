#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "demo/Sandbox.h"

namespace {

namespace fs = std::filesystem;

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) throw std::runtime_error(std::string(name) + " must be set, as on-this-machine does");
  return value;
}

class InstalledHost : public testing::TestWithParam<const char*> {};

TEST_P(InstalledHost, CrashIsDelivered) {
  const fs::path daemon = Variable("INSTALLED_DAEMON");
  const demo::Sandbox sandbox;
  demo::HostRun run = sandbox.StartHostProgram(
      {fs::path(Variable("INSTALLED_HOSTS")) / GetParam(), daemon, sandbox.Folder() / "bin/SampleReporter"},
      "host.out");
  ASSERT_TRUE(run.AwaitMessage("runOnce")) << demo::ContentOf(sandbox.Folder() / "host.out");
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(run.daemon.Id()) + "/exe"), daemon);

  demo::Program doctor =
      sandbox.StartProgram({"/usr/bin/crctl", "doctor", "--pid", std::to_string(run.host.Id())}, "doctor.out");
  EXPECT_EQ(doctor.AwaitEnd(), 0) << demo::ContentOf(sandbox.Folder() / "doctor.out");

  run.host.Say("crash");
  const auto status = run.host.AwaitEnd();
  ASSERT_TRUE(status && WIFSIGNALED(*status));
  EXPECT_EQ(run.daemon.AwaitEnd(), 0) << demo::ContentOf(run.logFile);
  const auto receipts = sandbox.Received();
  ASSERT_FALSE(receipts.empty()) << demo::ContentOf(run.logFile);
  EXPECT_TRUE(receipts.back().problems.empty());  // those before are of the doctor
  EXPECT_EQ(receipts.back().Data("event.value"), "abnormal:signal");
  EXPECT_TRUE(demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); }));
}

// It waits for its first words.
TEST(InstalledHelper, RenouncesNewPrivileges) {
  const demo::Program helper({fs::path(Variable("INSTALLED_DAEMON")).concat("-http")}, {}, "/dev/null");
  const fs::path facts = "/proc/" + std::to_string(helper.Id()) + "/status";
  EXPECT_TRUE(demo::Eventually([&] { return demo::ContentOf(facts).find("NoNewPrivs:\t1\n") != std::string::npos; }));
}

INSTANTIATE_TEST_SUITE_P(Package, InstalledHost, testing::Values("c-host", "build/cpp-host"));

}  // namespace
