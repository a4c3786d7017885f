#include <atomic>
#include <csignal>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Preferences.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/Tasks.h"
#include "platform/Users.h"
#include "platform/Workers.h"
#include "tests/contract/Scene.h"

TEST_F(Contract, TasksThatCannotBeStartedAreNone) {
  EXPECT_FALSE(platform::StartTask(Path("no program"), {}));
  EXPECT_FALSE(platform::StartTask(scene::Home(), {}));
  const auto task = platform::StartTask(scene::Program(), {"one", "", "two"});
  ASSERT_TRUE(task);
  EXPECT_GT(*task, 0);
  platform::BringToFront(*task);
}

TEST_F(Contract, WaitingForWorkersCoversTasksSubmittedMeanwhile) {
  std::atomic<int> done = 0;
  platform::WorkerGroup group;
  group.Wait();
  group.Async([&] {
    platform::SleepFor(std::chrono::milliseconds(20));
    group.Async([&] {
      platform::SleepFor(std::chrono::milliseconds(20));
      ++done;
    });
    ++done;
  });
  group.Wait();
  EXPECT_EQ(done, 2);
}

TEST_F(Contract, TheRunLoopFromTheHostsLifeToItsEnd) {
  const std::int32_t host = scene::HostId();
  platform::WatchHost(host);
  std::vector<std::pair<std::string, std::int64_t>> ends;
  platform::ObserveTermination([&](const std::string& id, std::int64_t status) { ends.emplace_back(id, status); });
  EXPECT_TRUE(platform::HostLives(host));

  platform::WakeRunLoop();
  EXPECT_TRUE(platform::WaitForInput());  // the wake came first and sticks
  platform::WorkerReturned();
  scene::KillHost(host, SIGTERM);
  while (platform::WaitForInput()) {
  }
  EXPECT_EQ(ends, (std::vector{std::pair(std::to_string(host), std::int64_t{SIGTERM})}));
  EXPECT_FALSE(platform::HostLives(host));
  platform::StopDelivery();
}

TEST_F(Contract, WithoutAHostNothingIsLeftToWaitForOnceTheWorkerReturned) {
  platform::WorkerReturned();
  while (platform::WaitForInput()) {
  }
  for (const std::int32_t id : {0, -1}) EXPECT_FALSE(platform::HostLives(id)) << id;
}

TEST_F(Contract, APreferencesDomainComesBackAsItWasSet) {
  EXPECT_FALSE(platform::PersistentDomain("com.example.none"));
  // In the order that the one machine keeps and the other makes.
  platform::Dictionary domain = {{"flat", "1"},
                                 {"nested", platform::Value(platform::Dictionary{{"a", "2"}, {"b", "3"}})}};
  ASSERT_TRUE(platform::SetPersistentDomain("com.example.app", domain));
  EXPECT_EQ(platform::PersistentDomain("com.example.app"), domain);

  domain.Set("number", platform::Value(std::int64_t{7}));
  ASSERT_TRUE(platform::SetPersistentDomain("com.example.app", domain));
  EXPECT_EQ(platform::PersistentDomain("com.example.app"), domain);
  EXPECT_EQ(platform::PreferenceValue("com.example.app", "number"), platform::Value(std::int64_t{7}));
  EXPECT_FALSE(platform::PreferenceValue("com.example.app", "none"));
}
