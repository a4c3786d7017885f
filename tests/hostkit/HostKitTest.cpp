#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <crhost.hpp>
#include <csignal>
#include <filesystem>

#include "demo/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using demo::ContentOf;
using demo::HostRun;
using demo::Sandbox;

fs::path OutputOf(const Sandbox& sandbox) { return sandbox.Folder() / "kit.out"; }

// A host of the kit and its daemon, once that watches.
HostRun StartKitHost(Sandbox& sandbox, const std::string& program = "CrashingHost") {
  const fs::path programs = fs::read_symlink("/proc/self/exe").parent_path();
  const fs::path bin = sandbox.Folder() / "bin";
  fs::copy_file(programs / program, bin / program);
  sandbox.environment["LD_LIBRARY_PATH"] = bin;
  HostRun run = sandbox.StartHostProgram({bin / program, bin / "CRDaemon", bin / "SampleReporter"}, "kit.out");
  EXPECT_TRUE(run.AwaitMessage("runOnce")) << ContentOf(OutputOf(sandbox));
  return run;
}

struct Way {
  const char* name;  // what the host is told
  int signal;
  const char* type;
  std::ptrdiff_t leastFrames;  // of the host's own code
  const char* program = "CrashingHost";
};

class CrashMatrix : public testing::TestWithParam<Way> {};

TEST_P(CrashMatrix, EveryDeathIsAnEvent) {
  const Way& way = GetParam();
  Sandbox sandbox;
  HostRun run = StartKitHost(sandbox, way.program);
  run.host.Say(way.program == std::string("CrashingHost") ? way.name : "crash");
  const auto status = run.host.AwaitEnd();
  ASSERT_TRUE(status && WIFSIGNALED(*status)) << ContentOf(OutputOf(sandbox));
  EXPECT_EQ(WTERMSIG(*status), way.signal);
  EXPECT_EQ(run.daemon.AwaitEnd(), 0);

  ASSERT_EQ(sandbox.Received().size(), 1U) << ContentOf(run.logFile);
  const demo::Receipt receipt = sandbox.Received().front();
  EXPECT_TRUE(receipt.problems.empty());
  const std::map<std::string, std::string> expected = {{"event.value", "abnormal:signal"},
                                                       {"event.error_code", std::to_string(way.signal)},
                                                       {"event.error_type", way.type},
                                                       {"event.error_desc", "Received signal from Photo"}};
  for (const auto& [key, value] : expected) EXPECT_EQ(receipt.Data(key), value) << key;
  EXPECT_GE(std::stod(receipt.Data("event.count")), 0);
  EXPECT_LT(std::stod(receipt.Data("event.count")), 60);
  EXPECT_EQ(receipt.Data("event.guid").size(), 36U);

  // Nothing is left of the making; and it is under the one name that the daemon expects, or it could not clear it up.
  const std::vector<fs::directory_entry> reports(fs::directory_iterator(sandbox.Reports()), {});
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_TRUE(run.Logged("Setting signal report path as " + reports.front().path().string())) << ContentOf(run.logFile);
  const std::string report = ContentOf(reports.front());
  const std::size_t crashed = report.find("Crashed::");
  const std::size_t images = report.find("Binary Images");
  ASSERT_LT(crashed, images) << report;
  ASSERT_NE(images, std::string::npos) << report;
  EXPECT_NE(report.find(std::string(" ") + way.program + " /", images), std::string::npos) << report;
  std::istringstream frames(report.substr(crashed, images - crashed));
  const std::vector<std::string> words(std::istream_iterator<std::string>(frames), {});
  EXPECT_GE(std::count(words.begin(), words.end(), way.program), way.leastFrames) << report;
}

INSTANTIATE_TEST_SUITE_P(
    HostKit, CrashMatrix,
    testing::Values(Way{"NullWrite", SIGSEGV, "SIGSEGV", 3}, Way{"BusError", SIGBUS, "SIGBUS", 3},
                    Way{"NullCall", SIGSEGV, "SIGSEGV", 2}, Way{"Abort", SIGABRT, "SIGABRT", 2},
                    Way{"UncaughtException", SIGABRT, "SIGABRT", 2}, Way{"StackOverflow", SIGSEGV, "SIGSEGV", 100},
                    Way{"StackOverflowInThread", SIGSEGV, "SIGSEGV", 100}, Way{"DoubleFree", SIGABRT, "SIGABRT", 2},
                    Way{"WreckedHeap", SIGABRT, "SIGABRT", 2}, Way{"WreckedStack", SIGILL, "SIGILL", 1},
                    Way{"DivisionByZero", SIGFPE, "SIGFPE", 2}, Way{"IllegalInstruction", SIGILL, "SIGILL", 2},
                    Way{"RaisedInThread", SIGSYS, "SIGSYS", 2}, Way{"TwoThreads", SIGSEGV, "SIGSEGV", 2},
                    Way{"NoDescriptors", SIGSEGV, "SIGSEGV", 3}, Way{"OwnHandler", SIGSEGV, "SIGSEGV", 3},
                    Way{"OwnHandlerOfAWreckedStack", SIGSEGV, "SIGSEGV", 1}, Way{"Terminated", SIGTERM, "SIGTERM", 2},
                    Way{"BrokenPipe", SIGPIPE, "SIGPIPE", 2},
                    Way{"ExampleInC", SIGSEGV, "SIGSEGV", 1, "example-c-host"},
                    Way{"ExampleInCpp", SIGABRT, "SIGABRT", 1, "example-cpp-host"}),
    [](const auto& test) { return test.param.name; });

// Ends the host, which has announced it, or has no reason to be reported.
void ExpectNoReport(Sandbox& sandbox, HostRun& run) {
  kill(run.host.Id(), SIGKILL);
  ASSERT_TRUE(run.host.AwaitEnd());
  EXPECT_EQ(run.daemon.AwaitEnd(), 0) << ContentOf(run.logFile);
  EXPECT_TRUE(sandbox.Received().empty());
  EXPECT_TRUE(fs::is_empty(sandbox.Reports()));
}

TEST(HostKit, ForkHasNoPartInIt) {
  Sandbox sandbox;
  HostRun run = StartKitHost(sandbox);
  EXPECT_TRUE(ContentOf(OutputOf(sandbox)).starts_with(std::to_string(CRHOST_ALREADY_STARTED) + "\n"));
  run.host.Say("crash in a fork");
  const std::string inTheFork = "in the fork: " + std::to_string(CRHOST_NOT_STARTED) + " -1\nfork died of 11\n";
  EXPECT_TRUE(demo::Eventually([&] { return ContentOf(OutputOf(sandbox)).ends_with(inTheFork); }));
  ExpectNoReport(sandbox, run);
}

TEST(HostKit, HandlerWithoutContextLeavesNothing) {
  Sandbox sandbox;
  HostRun run = StartKitHost(sandbox);
  run.host.Say("handler without context");
  const auto status = run.host.AwaitEnd();
  EXPECT_TRUE(status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGSEGV);
  ExpectNoReport(sandbox, run);
}

TEST(HostKit, NormalEndIsHeard) {
  Sandbox sandbox;
  HostRun run = StartKitHost(sandbox);
  EXPECT_TRUE(demo::Eventually([&] {
    run.host.Say("announce");
    return run.Logged("Got appTerminatedNormally notification in daemon");
  }));
  EXPECT_TRUE(ContentOf(OutputOf(sandbox)).ends_with("announced: 0\n"));
  ExpectNoReport(sandbox, run);
}

// Accepts and never answers.
TEST(HostKit, HungBusHoldsNobody) {
  Sandbox sandbox;
  const std::string path = sandbox.Folder() / "hung";
  const int bus = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(bus, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(bus, 5), 0);
  fs::permissions(path, fs::perms::all);
  sandbox.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + path;
  HostRun run = StartKitHost(sandbox);
  const auto begin = std::chrono::steady_clock::now();
  run.host.Say("announce");
  const std::string answer = "announced: " + std::to_string(CRHOST_TIMED_OUT) + "\n";
  EXPECT_TRUE(demo::Eventually([&] { return ContentOf(OutputOf(sandbox)).ends_with(answer); }));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
  ExpectNoReport(sandbox, run);
  close(bus);
}

TEST(HostKit, MistakesAreToldAtTheStart) {
  struct Mistake {
    crhost_option option;
    const char* value;
    crhost_status status;
    const char* text;
  };
  const Mistake mistakes[] = {
      {CRHOST_DAEMON_PATH, "", CRHOST_INVALID_OPTION, "CRHOST_DAEMON_PATH must be set"},
      {CRHOST_DAEMON_PATH, "/nowhere/CRDaemon", CRHOST_NO_DAEMON, "/nowhere/CRDaemon: No such file"},
      {CRHOST_DAEMON_PATH, "/etc/passwd", CRHOST_NO_DAEMON, "/etc/passwd: Permission denied"},
      {CRHOST_DAEMON_PATH, "/proc/self/fd", CRHOST_NO_DAEMON, "Is a directory"},
      {CRHOST_REPORTER_PATH, "/nowhere/Reporter", CRHOST_NO_REPORTER, "/nowhere/Reporter: No such file"},
      {CRHOST_APP_NAME, "", CRHOST_INVALID_OPTION, "CRHOST_APP_NAME must be set"},
      {CRHOST_APP_NAME, "../Photo", CRHOST_INVALID_OPTION, "CRHOST_APP_NAME must be fit for a file name"},
      {CRHOST_APP_NAME, "Ph\xC3", CRHOST_INVALID_OPTION, "CRHOST_APP_NAME must be UTF-8"},
      {CRHOST_APP_VERSION, "4\nSignal Number: 9", CRHOST_INVALID_OPTION, "without control characters"},
      {CRHOST_WAIT_SECONDS, "20s", CRHOST_INVALID_OPTION, "CRHOST_WAIT_SECONDS must be a whole number"},
      {CRHOST_WAIT_SECONDS, "1234567", CRHOST_INVALID_OPTION, "CRHOST_WAIT_SECONDS must be a whole number"},
      {CRHOST_SIGNAL_HANDLING, "yes", CRHOST_INVALID_OPTION, "CRHOST_SIGNAL_HANDLING must be \"0\" or \"1\""}};
  for (const Mistake& mistake : mistakes) {
    crhost::Options options;
    options.Set(CRHOST_DAEMON_PATH, "/bin/true").Set(CRHOST_REPORTER_PATH, "/bin/true").Set(CRHOST_APP_NAME, "Photo");
    options.Set(CRHOST_WAIT_SECONDS, "123456");
    const crhost::Result result = crhost::Start(options.Set(mistake.option, mistake.value));
    EXPECT_EQ(result.Status(), mistake.status) << mistake.text;
    EXPECT_NE(result.Text().find(mistake.text), std::string::npos) << result.Text();
  }
  EXPECT_EQ(crhost::ReportSignals(CRHOST_FAULTS).Status(), CRHOST_NOT_STARTED);
  EXPECT_THROW(crhost::Options().Set(CRHOST_APP_NAME, std::string("Ph\0to", 5)), std::invalid_argument);
  EXPECT_THROW(crhost::Options().Set(static_cast<crhost_option>(1), "4711"), std::invalid_argument);
}

}  // namespace
