#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "demo/Display.h"
#include "platform/Processes.h"
#include "platform/Tasks.h"
#include "platform/Windows.h"

namespace {

using demo::Display;
using demo::Eventually;
using demo::SampleWindows;
using Windows = std::optional<std::vector<platform::Window>>;

// The limit, and what a busy machine adds to it.
constexpr std::chrono::milliseconds noLongWait{800};
constexpr std::chrono::seconds aFewSeconds{5};

Windows Look() {
  const auto begin = std::chrono::steady_clock::now();
  auto windows = platform::OnScreenWindows();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, noLongWait);
  return windows;
}

// Front first, the window manager's own left out.
std::string OwnersOnScreen() {
  std::string owners;
  for (const auto& window : Look().value_or(std::vector<platform::Window>())) {
    if (window.ownerName != "openbox") owners += *window.ownerName + " ";
  }
  return owners;
}

bool Shows(const std::string& owners) {
  return Eventually([&] { return OwnersOnScreen() == owners; }, aFewSeconds);
}

bool IsXcbLoaded() { return demo::ContentOf("/proc/self/maps").find("libxcb") != std::string::npos; }

class WindowsTest : public testing::Test {
 protected:
  WindowsTest() {
    StartServer();
    platform::SettleProcess();
    platform::WatchHost(0);  // gone, so that what comes now is listed
  }

  void StartServer() { setenv("DISPLAY", display.emplace().Name().c_str(), 1); }

  std::optional<Display> display;
};

TEST_F(WindowsTest, OwnersTitlesAndOrder) {
  const std::string liar = std::to_string(getpid());
  struct Row {
    std::string owner;
    std::vector<std::string> arguments;
    std::optional<std::string> title;
  };
  const std::vector<Row> rows = {{"UserNotificationCenter", {"--untitled", "--pid-property", liar}, std::nullopt},
                                 {"UserNotificationCenter", {"Battery", "--old-title", "Old"}, "Battery"},
                                 {"Problem Reporter", {""}, ""},
                                 {"Other", {"--untitled", "--old-title", "Old"}, "Old"},
                                 {"Other", {"", "--old-title", "Old", "--past-manager"}, ""}};
  std::vector<SampleWindows> shown;
  shown.reserve(rows.size());
  for (const Row& row : rows) shown.push_back(display->Show(row.owner, row.arguments));
  const SampleWindows unmapped = display->Show("Problem Reporter", {"", "--unmapped"});
  Windows windows;
  ASSERT_TRUE(Eventually([&] { return (windows = Look()).has_value(); }));
  ASSERT_EQ(windows->size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto& window = (*windows)[rows.size() - 1 - i];
    EXPECT_EQ(window.number, shown[i].numbers[0]);
    EXPECT_EQ(window.ownerName, rows[i].owner);
    EXPECT_EQ(window.title, rows[i].title) << i;
  }
}

TEST_F(WindowsTest, NothingIsOpenedWhileTheHostLivesAndOldOwnersAreLeftOut) {
  const bool wasLoaded = IsXcbLoaded();  // by a test before this one in the same process
  demo::Program host({"/bin/cat"}, {}, "/dev/null");
  platform::WatchHost(host.Id());
  const SampleWindows before = display->Show("Problem Reporter", {"Before"});
  EXPECT_TRUE(Look() && Look()->empty());
  EXPECT_EQ(IsXcbLoaded(), wasLoaded);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // ticks by which the two are told apart
  kill(host.Id(), SIGKILL);
  EXPECT_TRUE(Eventually([&] { return !platform::HostLives(host.Id()); }));
  const SampleWindows after = display->Show("Problem Reporter", {"After"});
  EXPECT_TRUE(Shows("Problem Reporter ")) << OwnersOnScreen();
  EXPECT_EQ(Look()->at(0).title, "After");
}

TEST_F(WindowsTest, UnderAWindowManagerAndAfterItsDeath) {
  const SampleWindows first = display->Show("First", {""});
  display->StartWindowManager();
  const SampleWindows second = display->Show("Second", {""});
  const SampleWindows menu = display->Show("Menu", {"", "--past-manager"});
  const SampleWindows iconic = display->Show("Iconic", {"", "--iconic"});
  const SampleWindows last = display->Show("Last", {""});
  EXPECT_TRUE(Shows("Menu Last Second First ")) << OwnersOnScreen();

  display->KillWindowManager();
  const SampleWindows orphan = display->Show("Orphan", {""});
  EXPECT_TRUE(Eventually([] { return OwnersOnScreen().starts_with("Orphan "); }, aFewSeconds)) << "a stale list counts";
}

TEST_F(WindowsTest, AStoppedServerIsNotWaitedForAndComesBack) {
  const SampleWindows window = display->Show("Other", {""});
  for (const char* state : {"never connected", "connected"}) {
    display->Stop();
    for (int pass = 0; pass < 3; ++pass) EXPECT_FALSE(Look()) << state;
    display->Continue();
    EXPECT_TRUE(Shows("Other ")) << state;
  }
}

TEST_F(WindowsTest, AKilledServerIsNoWindowListUntilThereIsAnother) {
  for (const bool isStoppedFirst : {false, true}) {
    const SampleWindows window = display->Show("Other", {""});
    EXPECT_TRUE(Shows("Other ")) << isStoppedFirst;
    if (isStoppedFirst) {
      display->Stop();
      EXPECT_FALSE(Look());
    }
    display->Kill();
    EXPECT_FALSE(Look()) << isStoppedFirst;
    StartServer();
  }
}

TEST_F(WindowsTest, ATaskComesToTheFront) {
  const auto timesInFront = [](const SampleWindows& shown) {
    const std::string output = demo::ContentOf(shown.output);
    return std::count(output.begin(), output.end(), '\n') - 1;
  };
  display->StartWindowManager();
  const SampleWindows reporter = display->Show("Reporter", {""});
  EXPECT_TRUE(Eventually([&] { return timesInFront(reporter) == 1; }));
  const SampleWindows other = display->Show("Other", {""});
  EXPECT_TRUE(Eventually([&] { return timesInFront(other) == 1; }));

  display->Stop();
  const auto begin = std::chrono::steady_clock::now();
  platform::BringToFront(reporter.program.Id());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, noLongWait);
  display->Continue();
  EXPECT_TRUE(Eventually([&] { return timesInFront(reporter) == 2; }));
}

// Runs in a process of its own: a display that failed is not tried again for a while, and a library stays loaded. Ends
// it at once: a sanitizer's search for leaks at an exit now and then hangs over a thread that ends meanwhile.
[[noreturn]] void ExitWithoutWindows(const char* displayName) {
  unsetenv("DISPLAY");
  if (displayName != nullptr) setenv("DISPLAY", displayName, 1);
  platform::WatchHost(0);
  const bool isSeen = Look() || Look();
  platform::BringToFront(getpid());
  std::_Exit(!isSeen && !testing::Test::HasFailure() && (displayName != nullptr || !IsXcbLoaded()) ? 0 : 1);
}

TEST(WindowsDeathTest, NoDisplayIsNoWindowListAndLoadsNothing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* name :
       {static_cast<const char*>(nullptr), "", "garbage", ":", ":99999999999", ":4711", "nowhere.invalid:0"}) {
    EXPECT_EXIT(ExitWithoutWindows(name), testing::ExitedWithCode(0), "") << (name == nullptr ? "unset" : name);
  }
}

}  // namespace
