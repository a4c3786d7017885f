#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

class Launch : public testing::Test {
 protected:
  bool Fetch(const std::map<std::size_t, std::string>& replaced = {}) {
    ProcessWide().arguments = HostArguments(replaced);
    return daemon.FetchDaemonArguments();
  }

  SimulatedMachine machine;
  MyDaemon daemon;
};

}  // namespace

TEST_F(Launch, Conversions) {
  const struct {
    const char* text;
    std::int32_t seconds;
    bool flag;
  } cases[] = {{"30", 30, true}, {" 7 days", 7, true}, {"-5", -5, true},   {"99999999999", 2147483647, true},
               {"YES", 0, true}, {"t", 0, true},       {" +001", 1, true}, {"", 0, false},
               {"x9", 0, false}, {"000", 0, false},    {"--1", 0, false},  {"no", 0, false}};
  for (const auto& [text, seconds, flag] : cases) {
    ASSERT_TRUE(Fetch({{24, text}, {28, text}, {30, text}}));
    EXPECT_EQ(daemon.daemonWaitTimeInSeconds, seconds) << text;
    EXPECT_EQ(daemon.logCrashingModulePreference, flag) << text;
    EXPECT_EQ(daemon.isSignalHandlingEnabled, flag) << text;
  }
}

TEST_F(Launch, DerivedVariables) {
  for (const auto& [launchd, exits] : {std::pair("1", true), {"01", false}, {"true", false}, {"", false}}) {
    ASSERT_TRUE(Fetch({{23, launchd}}));
    daemon.processId = "4711";
    daemon.windowId = "7";
    machine.log.clear();
    daemon.initVariables();
    EXPECT_EQ(ProcessWide().exitOnExitZero, exits) << launchd;
  }
  EXPECT_EQ(daemon.hostname, "Labs-Mac-mini");
  EXPECT_EQ(daemon.currentDate, "2024-03-15");
  EXPECT_EQ(daemon.glimmerLogPath.Get(), "/Users/anna/Library/Logs/Malvex/glimmerData_4711.sllog");
  EXPECT_EQ(machine.CountLogged("glimmerLogPath: /Users/anna/Library/Logs/Malvex/glimmerData_4711.sllog"), 2U);
  EXPECT_FALSE(daemon.windowId);
  EXPECT_EQ(daemon.lastNumberOfProcesses, -1);
}

TEST_F(Launch, NamesThatWouldLeadElsewhereAreRefused) {
  for (const auto* id : {"../../x", "a/b"}) {
    ASSERT_TRUE(Fetch({{2, id}}));
    daemon.processId = id;
    daemon.initVariables();
    daemon.SetSignalReportPath();
    EXPECT_FALSE(daemon.glimmerLogPath.Get()) << id;
    EXPECT_FALSE(daemon.crashLogPath.Get()) << id;
  }
  machine.disk.Put("~/Library/Logs/victim.txt");
  daemon.processId = "/../../victim";
  daemon.removeAdditionalDataFile();
  EXPECT_TRUE(machine.disk.Has("~/Library/Logs/victim.txt"));
}

TEST_F(Launch, TheReportersArgumentsEndAtTheFirstUnsetField) {
  ASSERT_TRUE(Fetch());
  daemon.processId = "4711";
  daemon.crashPath.Set("/report");
  daemon.skylanceSessionID = "SkylanceSessionId:  ";
  daemon.parentExitCode = "11";
  daemon.LaunchMalvexCrashReporterApp();
  const auto all = Pieces(
      "/report|Photo|7.1|/Applications/Photo.icns|0|4711|Photo has quit|7.1.0|1042|SkylanceSessionId:  "
      "|Photo!|0|1.0|0||11|"
      "3.2|dialog-options|anna@example.org||No|USER-GUID|X86-64|trial");
  ASSERT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(machine.started[0].executable, "/Applications/Reporter");
  EXPECT_EQ(machine.started[0].arguments, all);
  EXPECT_TRUE(machine.Logged("Malvex crash reporter launched successfully"));

  daemon.parentExitCode.reset();
  daemon.LaunchMalvexCrashReporterApp();
  EXPECT_EQ(machine.started.back().arguments, std::vector<std::string>(all.begin(), all.begin() + 15));
  daemon.crashPath.Set(std::nullopt);
  daemon.LaunchMalvexCrashReporterApp();
  EXPECT_TRUE(machine.started.back().arguments.empty());
}

TEST_F(Launch, SystemVersionIsBinaryCodedDecimal) {
  EXPECT_EQ(daemon.GetOSVersionMajor(), 14);  // of 0x1462
  EXPECT_EQ(daemon.GetOSVersionMinor(), 6);
  EXPECT_EQ(MyDaemon::BCDToDecimal(0x99), 99);
}

TEST_F(Launch, TheBrowserVariantWantsThePlugInAmongTheBinaryImages) {
  const std::pair<const char*, bool> cases[] = {{"Binary Images:\nother\n0x1 PlugIn 7\n", true},
                                                {"x Binary Images PlugIn", true},
                                                {"0 PlugIn\nBinary Images:\nother\n", false},
                                                {"Binary Images:\nplugin\n", false},
                                                {"PlugIn\n", false},
                                                {"Binary Images:\nPlugIn \xff\n", false}};
  ASSERT_TRUE(Fetch({{7, "Browser"}, {8, "99"}, {9, "99.1"}, {10, "PlugIn"}}));
  daemon.crashPath.Set("/report");
  for (const auto& [report, started] : cases) {
    SCOPED_TRACE(report);
    machine.started.clear();
    machine.disk.Put("/report", report);
    daemon.LaunchMalvexCrashReporterApp();
    ASSERT_EQ(machine.started.size(), started ? 1U : 0U);
    if (!started) continue;
    EXPECT_EQ(machine.started[0].arguments.at(1), "Browser");
    EXPECT_EQ(machine.started[0].arguments.at(2), "99");
  }
  EXPECT_FALSE(machine.Logged("Malvex crash reporter launched successfully"));
}
