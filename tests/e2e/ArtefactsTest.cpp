#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "demo/Display.h"
#include "tests/e2e/Steps.h"

namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;

const std::string dumpName = "5A8B6C1D-0f3e-4D2C-9B7E-1A2B3C4D5E6F.dmp";

TEST(Artefacts, DumpSessionAndModuleGoWithTheReport) {
  Sandbox sandbox;
  sandbox.InstallCrashProcessor();
  HostRun run = sandbox.StartWatchedHost({.elements = {{28, "1"}}});
  const std::string process = std::to_string(run.host.Id());
  const fs::path dump = sandbox.PendingDumps(run) / (dumpName + ".gz");
  sandbox.Put(dump, "compressed");
  sandbox.Put(sandbox.PendingDumps(run) / dumpName, "plain");
  sandbox.Put(sandbox.Library() / "Logs/Malvex/Glimmer/SessionInfo" / ("a_Photo_PhotoDesktop_S1_" + process + "_Photo"),
              "");
  CrashWithSystemReport(sandbox, run);

  ASSERT_EQ(sandbox.Received().size(), 1U);
  EXPECT_EQ(sandbox.Received()[0].Data("event.session_guid"), "S1");
  EXPECT_EQ(demo::ContentOf(sandbox.Library() / "Preferences/Photo/4.2/CrashModule.txt"),
            "S1\ncom.apple.main-thread\ncom.malvex.photo.filters\n");
  ASSERT_TRUE(demo::Eventually([&] { return sandbox.ReporterArguments() && sandbox.StartedWith("GLCrashProcessor"); }));
  EXPECT_EQ(sandbox.ReporterArguments()->at(9), "SkylanceSessionId:  S1");
  EXPECT_EQ(sandbox.ReporterArguments()->at(19), dump);
  EXPECT_EQ(sandbox.ReporterArguments()->at(20), "Yes");
  EXPECT_EQ(*sandbox.StartedWith("GLCrashProcessor"), (std::vector<std::string>{"Photo", process, "", "", "", "", ""}));
  EXPECT_TRUE(fs::exists(dump));
}

// The report is protected until the dialog is closed.
TEST(Artefacts, TheDialogLetsTheReportThrough) {
  Sandbox sandbox;
  demo::Display display;
  sandbox.environment["DISPLAY"] = display.Name();
  HostRun run = sandbox.StartWatchedHost();
  sandbox.Put(sandbox.Reports() / reportName, demo::SystemReport(run.host.Id()));
  std::optional<demo::Protection> protection(sandbox.Reports() / reportName);
  if (!protection->Holds()) GTEST_SKIP() << "needs to protect a file";
  run.host.Say("crash");
  ASSERT_TRUE(run.host.AwaitEnd());
  std::optional<demo::Program> dialog(display.Show("Problem Reporter", {"Photo quit unexpectedly."}).program);
  EXPECT_TRUE(run.AwaitMessage("Apple Crash Dialog Window ID: "));
  EXPECT_TRUE(sandbox.Received().empty());
  EXPECT_FALSE(run.daemon.Status());
  dialog.reset();
  ExpectQuietEnd(run);
  EXPECT_EQ(sandbox.Received().size(), 1U);
  EXPECT_TRUE(demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); }));
}

}  // namespace
