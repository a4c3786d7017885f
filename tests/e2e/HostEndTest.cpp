#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "tests/e2e/Steps.h"

namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;

TEST(HostEnd, SystemReportBecomesEventAndReporter) {
  Sandbox sandbox;
  HostRun run = sandbox.StartWatchedHost();
  for (const int keyPressedInTheTerminal : {SIGINT, SIGQUIT, SIGHUP}) kill(run.daemon.Id(), keyPressedInTheTerminal);
  CrashWithSystemReport(sandbox, run);

  EXPECT_NE(demo::ContentOf(run.logFile).find("| VALUE:Crash report available | DETAIL:File:CrashWaitLoop.cpp LINE:"),
            std::string::npos);

  ASSERT_EQ(sandbox.Received().size(), 1U);
  const demo::Receipt receipt = sandbox.Received().front();
  EXPECT_TRUE(receipt.problems.empty());
  const std::map<std::string, std::string> expected = {
      {"source.name", "Photo"},          {"event.user_guid", "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11"},
      {"event.value", "abnormal:crash"}, {"event.error_code", "SIGSEGV"},
      {"event.count", "12.000000"},      {"event.dts_end", "2026-03-04T05:06:19Z"}};
  for (const auto& [key, value] : expected) EXPECT_EQ(receipt.Data(key), value) << key;

  ASSERT_TRUE(demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); }));
  const auto arguments = *sandbox.ReporterArguments();
  ASSERT_EQ(arguments.size(), 24U);
  EXPECT_EQ(arguments[0], sandbox.Reports() / reportName);
  EXPECT_EQ(arguments[5], std::to_string(run.host.Id()));
  EXPECT_EQ(arguments[9], "SkylanceSessionId:  ");
  EXPECT_EQ(arguments[13], "0");
  EXPECT_EQ(arguments[15], "11");
}

struct QuietEnd {
  const char* name;
  std::map<int, std::string> elements;
  std::vector<std::string> hostSays;
  const char* message;  // what tells that the daemon saw it
};

class HostEndWithoutReport : public testing::TestWithParam<QuietEnd> {};

TEST_P(HostEndWithoutReport, ClearsUpAndPostsNothing) {
  Sandbox sandbox;
  HostRun run = sandbox.StartWatchedHost({.elements = GetParam().elements});
  const fs::path leftover = sandbox.Library() / "Logs/Malvex" / ("data_" + std::to_string(run.host.Id()) + ".txt");
  sandbox.Put(leftover, "of this run");
  for (const std::string& line : GetParam().hostSays) {
    // A bus passes on only what it was asked for: a notice is repeated until the daemon has asked.
    EXPECT_TRUE(demo::Eventually([&] {
      run.host.Say(line);
      return !line.starts_with("notify") || run.Logged(GetParam().message);
    }));
  }
  EXPECT_TRUE(run.AwaitMessage(GetParam().message));
  EXPECT_TRUE(run.AwaitMessage("stopped"));
  run.host.Say("exit 0");
  ASSERT_TRUE(run.host.AwaitEnd());
  ExpectQuietEnd(run);

  EXPECT_FALSE(fs::exists(leftover));
  EXPECT_TRUE(sandbox.Received().empty());
  EXPECT_TRUE(sandbox.QueuedEvents().empty());
  EXPECT_FALSE(sandbox.ReporterArguments());
}

INSTANTIATE_TEST_SUITE_P(
    E2e, HostEndWithoutReport,
    testing::Values(
        QuietEnd{"NormalExit", {}, {"exit 0"}, "Normal Exit"},
        QuietEnd{"StatusZeroThatIsNoNormalExit", {{23, "0"}, {24, "1"}}, {"exit 0"}, "Searching for Crash"},
        QuietEnd{"OtherStatus", {{24, "1"}}, {"exit 3"}, "Searching for Crash"},
        QuietEnd{"HandledSignal", {}, {"signal 15"}, "Signal report is not created"},
        QuietEnd{"AnnouncedNormalEnd",
                 {},
                 {"notify appTerminatedNormally"},
                 "Got appTerminatedNormally notification in daemon"},
        QuietEnd{"ExceptionDelivered", {}, {"notify exceptionDeliveryCompleteion", "crash"}, "Exception delivered"}),
    [](const auto& test) { return test.param.name; });

// SIGTERM is how a session's end reaches the daemon. The service keeps every answer back for a minute.
TEST(SessionEnd, WaitingEndsAtOnceAndAHandOverIsFinished) {
  for (const bool crashes : {false, true}) {
    SCOPED_TRACE(crashes);
    Sandbox sandbox;
    sandbox.TellService("delay 60000");
    HostRun run = sandbox.StartWatchedHost();
    if (crashes) {
      run.host.Say("crash");
      ASSERT_TRUE(run.host.AwaitEnd());
      sandbox.Put(sandbox.Reports() / reportName, demo::SystemReport(run.host.Id()));
      EXPECT_TRUE(run.AwaitMessage("Crash report available"));
    }
    const auto begin = std::chrono::steady_clock::now();
    // A second one changes nothing, nor does a third.
    for (int i = 0; i < 3; ++i) kill(run.daemon.Id(), SIGTERM);
    EXPECT_TRUE(run.AwaitMessage("stopped"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(crashes ? 8 : 4));
    if (!crashes) run.host.Say("exit 0");
    ExpectQuietEnd(run);
    EXPECT_EQ(sandbox.QueuedEvents().size(), crashes ? 1U : 0U);
    EXPECT_EQ(demo::ContentOf(sandbox.Preferences()).find(reportName) != std::string::npos, crashes);
    EXPECT_EQ(crashes && demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); }), crashes);
  }
}

}  // namespace
