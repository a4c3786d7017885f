#import <AppKit/AppKit.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "platform/Clock.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/Tasks.h"
#include "platform/macos/Objects.h"

namespace {

using Texts = std::vector<std::string>;
std::mutex mutex;
Texts calls;  // of the handlers, on threads of their own

void Note(const std::string& call) {
  const std::lock_guard lock(mutex);
  calls.push_back(call);
}

Texts NotedOnceThereAre(std::size_t count) {
  const auto isDone = [count] {
    const std::lock_guard lock(mutex);
    return calls.size() >= count;
  };
  for (int pass = 0; pass < 60 && !isDone(); ++pass) static_cast<void>(platform::WaitForInput());
  platform::StopDelivery();
  std::ranges::sort(calls);
  return calls;
}

void PostEnd(NSDictionary* info) {
  NSNotificationCenter* const centre = [[NSWorkspace sharedWorkspace] notificationCenter];
  [centre postNotificationName:NSWorkspaceDidTerminateApplicationNotification object:nil userInfo:info];
}

TEST(Notices, CrossFromAnotherProcessToEachObserverOfTheirName) {
  const std::string name = "notice-" + std::to_string(getpid());
  // GNUstep refuses to observe every name, by raising.
  for (const auto& wanted : {std::optional(name), std::optional(name + "-other"), std::optional<std::string>()}) {
    platform::ObserveDistributed(wanted, [](const std::string& posted, const auto& info) {
      Note(posted + ":" + info.at("pid") + ":" + std::to_string(info.size()));
    });
  }
  ASSERT_TRUE(platform::StartTask(platform::ProgramFolder() + "/post", {name, "4711"}));
  EXPECT_EQ(NotedOnceThereAre(1), Texts{name + ":4711:1"});
}

TEST(Notices, OfAnEndCarryTheProcessAndItsStatus) {
  const platform::Pool pool;
  platform::ObserveTermination(
      [](const std::string& id, std::int64_t status) { Note(id + "=" + std::to_string(status)); });
  NSString* const processId = @"NSApplicationProcessIdentifier";
  PostEnd(nil);
  PostEnd(@{@"NSWorkspaceExitStatusKey" : @9});
  PostEnd(@{processId : @1, @"NSWorkspaceExitStatusKey" : @11});
  PostEnd(@{processId : @2, @"NSWorkspaceExitStatusKey" : @-1});
  PostEnd(@{processId : @3});
  EXPECT_EQ(NotedOnceThereAre(3), (Texts{"1=11", "2=-1", "3=0"}));
  PostEnd(@{processId : @4});  // too late
  for (int pass = 0; pass < 3; ++pass) static_cast<void>(platform::WaitForInput());
  platform::SleepFor(std::chrono::milliseconds(100));
  EXPECT_EQ(NotedOnceThereAre(3).size(), 3U);
}

}  // namespace
