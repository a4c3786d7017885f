#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/PropertyList.h"
#include "tests/simulated/SimulatedMachine.h"

using platform::Value;

TEST(Policy, WhetherTheReporterIsLaunched) {
  const std::optional<Value> never = "2", neverAsNumber = Value(std::int64_t{2}), always = "1", other = "3", none;
  const struct {
    const char* what;
    std::optional<Value> preference;
    const char *throttled, *initValue, *showForSignal;
    bool isSignal, launched;
  } cases[] = {
      {"throttled", always, "1", "1", "1", false, false},
      {"plain crash", none, "0", "0", "0", false, true},
      {"never", never, "0", "0", "1", false, false},
      {"never, a number", neverAsNumber, "0", "0", "1", false, false},
      {"never, overridden", never, "0", "1", "0", false, true},
      {"never, overridden in a signal", never, "0", "1", "0", true, true},
      {"never, not quite overridden", never, "0", "10", "1", true, false},
      {"signal without dialog", other, "0", "0", "0", true, false},
      {"signal without preferences", none, "0", "0", "0", true, false},
      {"signal with dialog", none, "0", "0", "1", true, true},
      {"signal with something like it", none, "0", "0", "01", true, false},
      {"signal, always", always, "0", "0", "0", true, true},
      {"signal, sent without prompt", none, "0", " 1x", "0", true, true},
      {"not quite throttled", none, "01", "0", "0", false, true},
      {"no number", Value("two"), "0", "0", "0", false, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    SimulatedMachine machine;
    if (row.preference) machine.SetPreference("always_never_send", *row.preference);
    ProcessWide().disableCrashReporting = row.throttled;
    ProcessWide().isSignal = row.isSignal;
    MyDaemon daemon;
    daemon.initValue = row.initValue;
    daemon.showCRDialogForSignal = row.showForSignal;
    EXPECT_EQ(daemon.shouldInitMCRApp(), row.launched);
    const bool consulted = row.throttled != std::string("1");
    EXPECT_EQ(machine.CountLogged("Not able to access CR preference"), consulted && !row.preference ? 1U : 0U);
    const bool forbidden = consulted && (row.preference == never || row.preference == neverAsNumber);
    EXPECT_EQ(machine.CountLogged("always_never_send flag is set to 2 in CR preference"), forbidden ? 1U : 0U);
  }
}

TEST(Policy, WhatAnExitStatusMeans) {
  SimulatedMachine machine;
  MyDaemon daemon;
  ProcessWide().exitOnExitZero = true;
  const std::set<std::int64_t> handled = {1, 2, 13, 14, 15, 24, 25, 26, 27};
  for (std::int64_t status = -1; status < 300; ++status) {
    SCOPED_TRACE(status);
    daemon.exitStatus = status;
    for (const auto& [notified, enabled] : {std::pair(false, true), {true, false}, {true, true}}) {
      daemon.terminateNotified = notified;
      daemon.isSignalHandlingEnabled = enabled;
      EXPECT_EQ(daemon.IsNormalExit(), notified && status == 0);
      EXPECT_EQ(daemon.IsCRHandledSignal(), notified && enabled && handled.contains(status));
    }
    ProcessWide().isSignal = false;
    EXPECT_EQ(daemon.canBeASignalCase(), status == 9);
    daemon.SetIsSignalFlagBasedOnExiStatus();
    EXPECT_EQ(ProcessWide().isSignal, handled.contains(status));
    EXPECT_EQ(daemon.canBeASignalCase(), status == 9 || handled.contains(status));
  }
  ProcessWide().unknownExitCode = true;
  EXPECT_TRUE(daemon.canBeASignalCase());
  ProcessWide().unknownExitCode = ProcessWide().exitOnExitZero = false;
  EXPECT_TRUE(daemon.canBeASignalCase());
  daemon.exitStatus = 0;
  EXPECT_FALSE(daemon.IsNormalExit());
}

TEST(Policy, CrashReportingProcessesAreCounted) {
  SimulatedMachine machine;
  MyDaemon daemon;
  machine.processes = {"ReportCrash", "ReportCrash", "crashdump", "CrashReporter", "ReportCrashes", "reportcrash"};
  EXPECT_EQ(daemon.getProcessesCount(), 4);
  EXPECT_FALSE(daemon.problemReporterFound || daemon.problemReporterDied);
  machine.processes = {"Problem Reporter"};
  EXPECT_EQ(daemon.getProcessesCount(), 1);
  EXPECT_TRUE(daemon.problemReporterFound && !daemon.problemReporterDied);
  machine.processes = {};
  EXPECT_EQ(daemon.getProcessesCount(), 0);
  EXPECT_TRUE(daemon.problemReporterFound && daemon.problemReporterDied);
}
