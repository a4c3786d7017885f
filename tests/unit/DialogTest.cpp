#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

const std::vector<platform::Window> known = {
    {"Problem Reporter", "Photo quit", "1"},
    {"Problem Reporter", std::nullopt, "2"},
    {"UserNotificationCenter", std::nullopt, "3"},
    {"UserNotificationCenter", "", "4"},
    {"UserNotificationCenter", "Updates", "5"},
    {std::nullopt, "nobody's", "6"},
    {"", "", "7"},
    {"ReportCrash", "", "8"},
};

// "125": the windows of these numbers, front first.
std::optional<std::vector<platform::Window>> Shown(const std::string& numbers) {
  if (numbers == "no server") return std::nullopt;
  std::vector<platform::Window> windows;
  for (const char number : numbers) windows.push_back(known.at(static_cast<std::size_t>(number - '1')));
  return windows;
}

}  // namespace

TEST(Dialog, WhichWindowIsTheNewDialog) {
  SimulatedMachine machine;
  const struct {
    std::vector<std::string> passes;
    const char *now, *chosen;  // "": none
    bool problemReporterFound;
  } cases[] = {
      {{}, "no server", "", false},
      {{}, "578", "", false},
      {{}, "51", "1", true},
      {{}, "32", "3", false},
      {{}, "4", "4", false},
      {{}, "6", "6", true},
      {{"1", "1"}, "1", "", false},
      {{"1", "1", "1", "1"}, "1", "", false},
      {{"1"}, "1", "1", false},
      {{"13"}, "31", "-1", false},
      {{"136", "1"}, "163", "-1", false},
      {{"12", "1"}, "12", "2", false},
      {{"no server", "34"}, "341", "1", true},
      {{"12", "no server", "12"}, "123", "3", false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    MyDaemon daemon;
    for (const auto& numbers : row.passes) {
      machine.windows = Shown(numbers);
      daemon.PopulateDictionaryWithWindows();
    }
    machine.windows = Shown(row.now);
    EXPECT_EQ(daemon.GetCrashWindowId().value_or(""), row.chosen);
    EXPECT_EQ(daemon.problemReporterFound, row.problemReporterFound);
  }
}

TEST(Dialog, TheSearchForIt) {
  const struct {
    const char *name, *before, *appears;  // the latter after ten seconds
    bool isSignal, stopped;
    std::chrono::milliseconds elapsed;
    std::string windowId;
    bool isWindowExist, found;
  } cases[] = {
      {"none", "", "", false, false, 30s, "", true, true},
      {"no server", "no server", "no server", false, false, 30s, "", true, true},
      {"stopped before", "", "3", false, true, 0s, "", true, true},
      {"new", "", "3", false, false, 10s, "3", true, true},
      {"new, of the problem reporter", "", "1", false, false, 10s, "1", false, true},
      {"ambiguous", "34", "34", false, false, 10s, "", true, true},
      {"signal", "", "3", true, false, 0s, "", false, false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    SimulatedMachine machine;
    MyDaemon daemon;
    machine.windows = Shown(row.before);
    daemon.PopulateDictionaryWithWindows();
    machine.windows = Shown("");
    machine.At(9600ms).Do([&] { machine.windows = Shown(row.appears); });
    ProcessWide().isSignal = row.isSignal;
    daemon.endTask = row.stopped;
    for (int call = 0; call < 2; ++call) daemon.WaitForAppleCrashDialog();
    EXPECT_EQ(machine.Elapsed(), row.elapsed);
    EXPECT_EQ(daemon.windowId.value_or(""), row.windowId);
    EXPECT_EQ(daemon.isWindowExist, row.isWindowExist);
    EXPECT_EQ(daemon.foundWindow, row.found ? 1 : 0);
    EXPECT_EQ(machine.CountLogged("Apple Crash Dialog Window ID: " + row.windowId), row.windowId.empty() ? 0U : 2U);
  }
}

TEST(Dialog, AWindowExistsByItsWholeNumber) {
  SimulatedMachine machine;
  EXPECT_TRUE(MyDaemon::GetWindowExists(std::nullopt));
  EXPECT_FALSE(MyDaemon::GetWindowExists("3"));
  machine.windows = Shown("35");
  EXPECT_TRUE(MyDaemon::GetWindowExists("5"));
  EXPECT_FALSE(MyDaemon::GetWindowExists("33"));
}
