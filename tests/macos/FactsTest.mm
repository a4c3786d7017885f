#include <gtest/gtest.h>
#include <sanitizer/allocator_interface.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "platform/Preferences.h"
#include "platform/Processes.h"
#include "platform/System.h"
#include "platform/Tasks.h"
#include "platform/Users.h"
#include "platform/Windows.h"
#include "platform/macos/Objects.h"
#include "tests/contract/Scene.h"
#include "tests/macos/Fakes.h"

namespace {

using platform::Value;

TEST_F(Contract, WindowsKeepWhatIsAbsentApartFromWhatIsEmpty) {
  const platform::Pool pool;
  EXPECT_FALSE(platform::OnScreenWindows());
  fakes::windows = @[
    @{@"kCGWindowNumber" : @4294967295U,
      @"kCGWindowOwnerName" : @"Owner",
      @"kCGWindowName" : @""},
    @{@"kCGWindowNumber" : @7}
  ];
  const auto windows = platform::OnScreenWindows();
  ASSERT_TRUE(windows && windows->size() == 2);
  const auto [owner, title, number] = windows->at(0);
  EXPECT_TRUE(owner == "Owner" && title == "" && number == "4294967295");
  EXPECT_FALSE(windows->at(1).ownerName || windows->at(1).title);
}

TEST_F(Contract, ProcessNamesComeWholeWhenTheTableGrowsMeanwhile) {
  fakes::mayTableGrow = true;
  const auto count = [] {
    const auto names = platform::ProcessNames();
    return std::ranges::count(names, "macos_tests");
  };
  EXPECT_EQ(count(), 1);
  const pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(count(), 1);
  EXPECT_FALSE(platform::HostLives(child));
  EXPECT_TRUE(platform::HostLives(getpid()));
}

TEST_F(Contract, ThisMachineAndItsUsers) {
  EXPECT_FALSE(platform::ConsoleUser());
  setenv("CONSOLE_USER", "somebody", 1);
  EXPECT_EQ(platform::ConsoleUser(), "somebody");
  for (const auto& user : {std::optional<std::string>(), std::optional(platform::UserName())}) {
    EXPECT_EQ(platform::HomeFolder(user), scene::Home());
  }
  EXPECT_FALSE(platform::HomeFolder("nobody of this name"));
  EXPECT_EQ(platform::LibraryFolder(), Path("Library"));
  EXPECT_FALSE(platform::LocalHostName().empty());
  EXPECT_TRUE(platform::ReportsAreJson());
  EXPECT_EQ(platform::SystemVersionBcd(), 0x1095U);
  platform::BringToFront(getpid());
  EXPECT_EQ(fakes::frontProcess, getpid());
  EXPECT_TRUE(platform::Environment("HOME"));
  fakes::hasChangedIds = true;
  EXPECT_FALSE(platform::Environment("HOME"));
}

TEST_F(Contract, ForeignPreferencesSurviveARewrite) {
  const platform::Pool pool;
  NSDictionary* const foreign = @{
    @"when" : [NSDate dateWithTimeIntervalSince1970:1614834367],
    @"bytes" : [NSData dataWithBytes:"\0\xFF" length:2],
    @"deep" : @[ @[ @0.1, @(NO), @(INT64_MIN) ], @{} ],
    @"\u00e4" : @"\u20ac"
  };
  [[NSUserDefaults standardUserDefaults] setPersistentDomain:foreign forName:@"com.example.foreign"];
  auto domain = platform::PersistentDomain("com.example.foreign");
  ASSERT_TRUE(domain);
  domain->Set("guid", Value("ours"));
  ASSERT_TRUE(platform::SetPersistentDomain("com.example.foreign", *domain));

  NSString* const file = platform::ToText(Path("Library/Preferences/com.example.foreign.plist"));
  NSMutableDictionary* const kept = [NSMutableDictionary dictionaryWithContentsOfFile:file];
  EXPECT_TRUE([[kept objectForKey:@"guid"] isEqual:@"ours"]);
  [kept removeObjectForKey:@"guid"];
  EXPECT_TRUE([kept isEqual:foreign]);
  const unichar half[] = {'a', 0xD83D};
  EXPECT_FALSE(platform::FromObject([NSString stringWithCharacters:half length:2]));
  // GNUstep cannot read the one that it writes, and takes the other for a number.
  for (const Value& value : {Value(Value::State(UINT64_MAX)), Value(Value::State(false))}) {
    EXPECT_EQ(platform::FromObject(platform::ToObject(value)), value);
  }
  EXPECT_EQ(platform::PreferenceValue("com.example.foreign", "\xC3\xA4"), Value("\xE2\x82\xAC"));
}

TEST(PropertyLists, NestOnlySoDeep) {
  const auto nested = [](std::size_t levels, const std::string& open, const std::string& close) {
    std::string text;
    for (std::size_t level = 0; level < levels; ++level) text = open + text + close;
    return text;
  };
  const std::string prologue = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (const std::size_t levels : {128U, 129U, 9999U}) {
    const bool isGood = levels == 128;
    const auto xml = prologue + nested(levels, "<array>", "</array>") + "</plist>";
    EXPECT_EQ(static_cast<bool>(platform::ParsePropertyList(xml)), isGood) << levels;
    EXPECT_EQ(static_cast<bool>(platform::ParsePropertyList(nested(levels, "(", ")"))), isGood) << levels;
  }
}

// The leak checker cannot see through the object runtime; what a hundred calls leave behind can be counted.
TEST_F(Contract, CallsLeaveNothingBehind) {
  const platform::Pool pool;
  fakes::windows = @[ @{@"kCGWindowNumber" : @7, @"kCGWindowName" : @"x"} ];
  setenv("CONSOLE_USER", "somebody", 1);
  const platform::Dictionary domain = {{"text", "x"}, {"list", Value(platform::Array{Value("y")})}};
  const auto callAll = [&domain] {
    static_cast<void>(platform::OnScreenWindows());
    static_cast<void>(platform::ConsoleUser());
    static_cast<void>(platform::PreferenceValue("com.example.app", "text"));
    static_cast<void>(platform::LibraryFolder());
    static_cast<void>(platform::SetPersistentDomain("com.example.app", domain));
    static_cast<void>(platform::ParsePropertyList(*platform::WritePropertyList(Value(domain))));
  };
  for (int i = 0; i < 20; ++i) callAll();
  const auto before = __sanitizer_get_current_allocated_bytes();
  constexpr int calls = 100, smallestObject = 16;
  for (int i = 0; i < calls; ++i) callAll();
  EXPECT_LT(__sanitizer_get_current_allocated_bytes(), before + std::size_t{calls * smallestObject});
}

}  // namespace
