#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/Files.h"
#include "platform/HttpClient.h"
#include "platform/Preferences.h"
#include "tests/e2e/Steps.h"

// What surrounds the daemon: limits of the system, links of the user's, a service that breaks off.
namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;

// ThreadSanitizer's runtime writes a file at the start of every program.
#if defined(__SANITIZE_THREAD__)
constexpr int leastFileBytes = 4000;
#else
constexpr int leastFileBytes = 0;
#endif

// With 0 the event is posted from memory. With 4000 the log is cut, while an event still fits.
TEST(Surroundings, LimitsOfAFilesSizeLoseNoCrash) {
  for (const int bytes : {leastFileBytes, 4000}) {
    SCOPED_TRACE(bytes);
    Sandbox sandbox;
    HostRun run = sandbox.StartWatchedHost();
    demo::Program limits = sandbox.StartProgram(
        {"/usr/bin/prlimit", "--pid", std::to_string(run.daemon.Id()), "--fsize=" + std::to_string(bytes)},
        "prlimit.out");
    ASSERT_EQ(limits.AwaitEnd(), 0);
    CrashWithSystemReport(sandbox, run);
    EXPECT_EQ(sandbox.Received().size(), 1U);
    // The reporter inherits the limit, but not that its signal is ignored: with 0 it could not tell that it ran.
    EXPECT_TRUE(bytes == 0 || demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); }));
  }
}

TEST(Surroundings, LimitsOfOpenFilesAreRaisedOrTold) {
  Sandbox sandbox;
  const struct {
    const char* limits;
    const char* told;
  } cases[] = {{"--nofile=20:64", ""}, {"--nofile=20", "CRDaemon: only 20 files may be open"}};
  for (const auto& [limits, told] : cases) {
    demo::Program daemon = sandbox.StartProgram({"/usr/bin/prlimit", limits, sandbox.Folder() / "bin/CRDaemon"}, "out");
    EXPECT_EQ(daemon.AwaitEnd(), 0);
    const std::string printed = demo::ContentOf(sandbox.Folder() / "out");
    EXPECT_EQ(printed.substr(0, std::string_view(told).size()), told);
    EXPECT_EQ(printed.empty(), *told == '\0') << printed;
  }
}

TEST(Surroundings, SetUserIdIsRefused) {
  if (getuid() != 0) GTEST_SKIP() << "only root can give a program away";
  Sandbox sandbox;
  for (const std::string name : {"CRDaemon", "CRDaemon-http"}) {
    const fs::path program = sandbox.Folder() / "bin" / name;
    ASSERT_EQ(chown(program.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    demo::Program started = sandbox.StartProgram({program}, name + ".out");
    const auto status = started.AwaitEnd();
    ASSERT_TRUE(status);
    EXPECT_EQ(WIFEXITED(*status) ? WEXITSTATUS(*status) : -1, 1);
    EXPECT_EQ(demo::ContentOf(sandbox.Folder() / (name + ".out")),
              name + ": must not run with the rights of another user or group (set-user-id)\n");
  }
}

// Takes one connection, reads, and sends what it was given.
class OneAnswer {
 public:
  explicit OneAnswer(std::string answer) : answer_(std::move(answer)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = static_cast<sockaddr*>(static_cast<void*>(&address));
    if (bind(socket_, any, size) != 0 || listen(socket_, 1) != 0 || getsockname(socket_, any, &size) != 0) {
      throw std::runtime_error("no socket");
    }
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/ingest";
    thread_ = std::jthread([this] {
      const int connection = accept(socket_, nullptr, nullptr);
      char request[4096];
      static_cast<void>(recv(connection, request, sizeof request, 0));
      static_cast<void>(send(connection, answer_.data(), answer_.size(), MSG_NOSIGNAL));
      close(connection);
    });
  }
  OneAnswer(const OneAnswer&) = delete;
  OneAnswer& operator=(const OneAnswer&) = delete;
  ~OneAnswer() {
    thread_ = {};
    close(socket_);
  }
  const std::string& Url() const { return url_; }

 private:
  int socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string answer_;
  std::string url_;
  std::jthread thread_;
};

TEST(Surroundings, AnAnswerThatBreaksOffIsNone) {
  const struct {
    const char* answer;
    int status;
  } cases[] = {{"HTTP/1.1 200 OK\r\nContent-Len", 0},
               {"HTTP/1.1 200 OK\r\n", 0},
               {"HTTP/1.1 200 OK", 0},
               {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nX: y\r\n", 0},
               {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf", 0},
               {"HTTP/1.1 200 OK\r\n\r\nhalf", 200},
               {"HTTP/1.1 503 No\r\nContent-Length: 0\r\n\r\n", 503},
               {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nTrailer: X\r\n\r\n1\r\na\r\n0\r\nX: y\r\n\r\n", 200}};
  for (const auto& [answer, status] : cases) {
    const OneAnswer service(answer);
    platform::HttpClient client(service.Url(), {});
    const platform::HttpAnswer got = client.Post("{}");
    EXPECT_EQ(got.status, status) << answer;
    EXPECT_EQ(got.error.empty(), status != 0) << got.error;
  }
}

// Homes in which folders and files were moved elsewhere, by a link of their owner's.
TEST(Surroundings, OwnLinksAreFollowed) {
  Sandbox sandbox;
  const fs::path moved = sandbox.Folder() / "moved";
  const fs::path real = moved / "Library";
  const fs::path preferences = moved / "settings.plist";
  sandbox.Put(preferences,
              "<plist version=\"1.0\"><dict><key>always_never_send</key><integer>2</integer></dict></plist>");
  sandbox.Put(moved / "marker", "append=1");
  sandbox.Put(moved / "record", "SkylanceSessionId:  5A1B");
  fs::rename(sandbox.Library(), real);
  const auto link = [&](const fs::path& target, const fs::path& path) {
    sandbox.Put(path.parent_path() / "made", "");
    fs::remove(path);
    fs::create_symlink(target, path);
    const demo::Account owner = demo::OrdinaryAccount();
    EXPECT_EQ(lchown(path.c_str(), owner.user, owner.group), 0);
  };
  link(real, sandbox.Library());
  link(preferences, sandbox.Preferences());
  link("../../../queue", sandbox.Queue());
  link(moved / "marker", sandbox.Library() / "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt");
  sandbox.TellService("status 500");
  HostRun run = sandbox.StartWatchedHost();
  sandbox.Put(sandbox.PendingDumps(run) / "a", "");
  link(moved / "record", sandbox.Library() / ("Logs/Malvex/glimmerData_" + std::to_string(run.host.Id()) + ".sllog"));
  CrashWithSystemReport(sandbox, run);

  EXPECT_TRUE(run.Logged("Malvex Crash Reporter App will not be launched")) << "the preferences were not read";
  EXPECT_TRUE(run.Logged("Setting Skylance Session ID: SkylanceSessionId:  5A1B"));
  ASSERT_EQ(sandbox.Received().size(), 1U);
  EXPECT_EQ(sandbox.Received().front().Data("event.session_guid"), "5A1B");
  EXPECT_FALSE(fs::exists(sandbox.PendingDumps(run).parent_path()));
  EXPECT_TRUE(fs::is_symlink(sandbox.Preferences()));
  EXPECT_NE(demo::ContentOf(preferences).find(reportName), std::string::npos);
  EXPECT_EQ(sandbox.QueuedEvents().size(), 1U);
  sandbox.TellService("status 200");
  if (geteuid() == 0) {
    EXPECT_EQ(lchown(sandbox.Queue().c_str(), 0, 0), 0);
    HostRun misled = sandbox.StartWatchedHost();
    misled.host.Say("exit 0");
    ASSERT_TRUE(misled.host.AwaitEnd());
    ExpectQuietEnd(misled);
    EXPECT_EQ(sandbox.QueuedEvents().size(), 1U) << "a link of somebody else's was followed";
    link("../../../queue", sandbox.Queue());
  }
  HostRun second = sandbox.StartWatchedHost();
  EXPECT_TRUE(demo::Eventually([&] { return sandbox.QueuedEvents().empty(); })) << "a queue that cannot be listed";
  second.host.Say("exit 0");
  ASSERT_TRUE(second.host.AwaitEnd());
  ExpectQuietEnd(second);
}

TEST(Surroundings, RootFollowsNoLinkThroughAFolderThatAGroupMayWrite) {
  if (getuid() != 0) GTEST_SKIP() << "only root is kept from links";
  Sandbox sandbox;
  const fs::path folder = sandbox.Folder() / "roots";
  for (const fs::path& path : {folder, folder / "real"}) fs::create_directory(path);
  ASSERT_EQ(chown(sandbox.Folder().c_str(), 0, 0), 0);
  std::ofstream(folder / "real/file") << "x";
  fs::create_directory_symlink(folder / "real", folder / "link");
  for (const auto& [mode, isFollowed] : {std::pair(0755U, true), {0775U, false}, {0757U, false}, {0750U, true}}) {
    ASSERT_EQ(chmod(folder.c_str(), mode), 0);
    EXPECT_EQ(static_cast<bool>(platform::ReadFile(folder / "link/file", 9)), isFollowed) << std::oct << mode;
  }
}

TEST(Surroundings, AUmaskTakesNoRightsFromTheDaemonItself) {
  Sandbox sandbox;
  const fs::path bin = sandbox.Folder() / "bin";
  HostRun run = sandbox.StartHostProgram(
      {"/bin/sh", "-c", "umask 0777; exec \"$0\" \"$@\"", bin / "SampleHost", bin / "CRDaemon", bin / "SampleReporter"},
      "host.out");
  EXPECT_TRUE(run.AwaitMessage("runOnce"));
  CrashWithSystemReport(sandbox, run);
  EXPECT_EQ(sandbox.Received().size(), 1U);
  EXPECT_NE(demo::ContentOf(sandbox.Preferences()).find(reportName), std::string::npos);
  EXPECT_EQ(fs::status(run.logFile).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

// As a daemon's, whose GUID must be the one that all others find.
TEST(Surroundings, WritersOfPreferencesLoseNothingOfEachOther) {
  Sandbox sandbox;
  setenv("HOME", (sandbox.Folder() / "home").c_str(), 1);
  constexpr int writers = 3;
  {
    std::vector<std::jthread> threads;
    threads.reserve(writers);
    for (int i = 0; i < writers; ++i) {
      threads.emplace_back([i] {
        EXPECT_TRUE(platform::ChangePersistentDomain("com.example.app", [i](platform::Dictionary& values) {
          values.Set(std::to_string(i), "set");
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
          return true;
        }));
      });
    }
  }
  EXPECT_EQ(platform::PersistentDomain("com.example.app")->size(), std::size_t{writers});
}

}  // namespace
