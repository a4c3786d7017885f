#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "platform/HttpClient.h"
#include "tests/e2e/Steps.h"

// What surrounds the daemon sets it limits, or breaks off.
namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;

// With 0 the event is posted from memory. With 4000 the log is cut, while an event still fits.
TEST(Limits, OfAFilesSizeLoseNoCrash) {
  for (const int bytes : {0, 4000}) {
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

TEST(Limits, OfOpenFilesAreRaisedOrTold) {
  Sandbox sandbox;
  const struct {
    const char* limits;
    const char* told;
  } cases[] = {{"--nofile=5:64", ""}, {"--nofile=7", "CRDaemon: only 7 files may be open"}};
  for (const auto& [limits, told] : cases) {
    demo::Program daemon = sandbox.StartProgram({"/usr/bin/prlimit", limits, sandbox.Folder() / "bin/CRDaemon"}, "out");
    EXPECT_EQ(daemon.AwaitEnd(), 0);
    const std::string printed = demo::ContentOf(sandbox.Folder() / "out");
    EXPECT_EQ(printed.substr(0, std::string_view(told).size()), told);
    EXPECT_EQ(printed.empty(), *told == '\0') << printed;
  }
}

TEST(Limits, SetUserIdIsRefused) {
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

TEST(Limits, AnAnswerThatBreaksOffIsNone) {
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

}  // namespace
