#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "tests/e2e/Steps.h"

namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;

void EndNormally(HostRun& run) {
  run.host.Say("exit 0");
  ASSERT_TRUE(run.host.AwaitEnd());
  ExpectQuietEnd(run);
}

class RefusedEvent : public testing::TestWithParam<int> {};

TEST_P(RefusedEvent, StaysQueuedAndIsDeliveredByTheNextRun) {
  Sandbox sandbox;
  sandbox.TellService("status " + std::to_string(GetParam()));
  HostRun first = sandbox.StartWatchedHost();
  CrashWithSystemReport(sandbox, first);

  ASSERT_EQ(sandbox.QueuedEvents().size(), 1U);
  const fs::path event = sandbox.QueuedEvents().front();
  EXPECT_EQ(fs::status(event).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_FALSE(fs::exists(event.string() + ".lck"));
  const auto stored = platform::ParsePropertyList(demo::ContentOf(event));
  ASSERT_TRUE(stored);
  const platform::Value guid = *stored->As<platform::Dictionary>()->Find("event.guid");

  sandbox.TellService("status 200");
  HostRun second = sandbox.StartWatchedHost();
  EXPECT_TRUE(demo::Eventually([&] { return sandbox.QueuedEvents().empty(); }));
  EndNormally(second);
  const auto received = sandbox.Received();
  ASSERT_EQ(received.size(), 2U);
  for (const demo::Receipt& receipt : received) EXPECT_EQ(platform::Value(receipt.Data("event.guid")), guid);
}

INSTANTIATE_TEST_SUITE_P(E2e, RefusedEvent, testing::Values(400, 500), testing::PrintToStringParamName());

TEST(Delivery, TwoDaemonsPostEachOfFiftyEventsOnce) {
  constexpr int events = 50;
  Sandbox sandbox;
  for (int event = 0; event < events; ++event) {
    const std::string number = std::to_string(event);
    sandbox.Put(sandbox.Queue() / ("crMacLog_" + number + ".log"),
                "<plist version=\"1.0\"><dict><key>event.guid</key><string>" + number + "</string></dict></plist>");
  }
  sandbox.TellService("delay 10");
  HostRun one = sandbox.StartHost({});
  HostRun two = sandbox.StartHost({});
  EXPECT_TRUE(demo::Eventually([&] { return sandbox.QueuedEvents().empty(); }));
  EndNormally(one);
  EndNormally(two);

  std::set<std::string> delivered;
  for (const demo::Receipt& receipt : sandbox.Received()) delivered.insert(receipt.Data("event.guid"));
  for (const HostRun* run : {&one, &two}) EXPECT_TRUE(run->Logged("processed report")) << "no race";
  EXPECT_EQ(delivered.size(), static_cast<std::size_t>(events));
  EXPECT_EQ(sandbox.Received().size(), static_cast<std::size_t>(events));
  EXPECT_TRUE(fs::is_empty(sandbox.Queue())) << "lock files stay behind";
}

TEST(Delivery, UntrustedCertificate) {
  Sandbox sandbox;
  sandbox.environment["SSL_CERT_FILE"] = sandbox.MakeCertificate("stranger");
  HostRun run = sandbox.StartWatchedHost();
  CrashWithSystemReport(sandbox, run);
  EXPECT_TRUE(sandbox.Received().empty());
  EXPECT_EQ(sandbox.QueuedEvents().size(), 1U);
  EXPECT_TRUE(run.Logged("failed to send HTTP request with error: SSL")) << demo::ContentOf(run.logFile);
}

// Accepts connections and says nothing, ever.
class SilentBus {
 public:
  explicit SilentBus(const fs::path& path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* anyAddress = static_cast<const sockaddr*>(static_cast<const void*>(&address));
    if (bind(socket_, anyAddress, sizeof address) != 0 || listen(socket_, 8) != 0) throw std::runtime_error("no bus");
    fs::permissions(path, fs::perms::all);
  }
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;
  ~SilentBus() { close(socket_); }

 private:
  int socket_;
};

struct Bus {
  const char* name;
  const char* address;
};

class BadBus : public testing::TestWithParam<Bus> {};

TEST_P(BadBus, CrashIsReportedAllTheSame) {
  Sandbox sandbox;
  const fs::path silentPath = sandbox.Folder() / "silent";
  const SilentBus silent(silentPath);
  const std::string address = GetParam().address;
  sandbox.environment["DBUS_SESSION_BUS_ADDRESS"] = address == "silent" ? "unix:path=" + silentPath.string() : address;
  HostRun run = sandbox.StartWatchedHost();
  const auto busy = [&run] {
    return std::stoll(demo::ContentOf("/proc/" + std::to_string(run.daemon.Id()) + "/schedstat"));
  };
  const auto before = busy();
  constexpr std::chrono::milliseconds look(500);
  std::this_thread::sleep_for(look);
  EXPECT_LT(std::chrono::nanoseconds(busy() - before), look / 2) << "it asks for the bus all the time";
  CrashWithSystemReport(sandbox, run);
  EXPECT_EQ(sandbox.Received().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(E2e, BadBus,
                         testing::Values(Bus{"None", ""}, Bus{"Garbage", "no address"},
                                         Bus{"Absent", "unix:path=/nonexistent/bus"}, Bus{"Silent", "silent"}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
