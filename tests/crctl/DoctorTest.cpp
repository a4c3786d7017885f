#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/crctl/CrctlSteps.h"

namespace {

namespace fs = std::filesystem;

std::string StateOf(const Outcome& outcome, const std::string& check) {
  for (const platform::Value& one : outcome.List("checks")) {
    if (TextOf(one, "name") == check) return TextOf(one, "state");
  }
  return "not checked";
}

TEST(Doctor, HealthyHostIsWell) {
  CrctlSandbox sandbox;
  const demo::HostRun run = sandbox.StartWatchedHost();
  const Outcome outcome = sandbox.Crctl({"doctor", "--json", "--app", "Photo", "--pid", std::to_string(run.host.Id())});
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_GE(outcome.List("checks").size(), 20U);
  for (const platform::Value& check : outcome.List("checks")) {
    const bool isTheKernels = TextOf(check, "name") == "exit-status";
    EXPECT_TRUE(isTheKernels || TextOf(check, "state") == "ok") << outcome.output;
  }
}

struct Breach {
  const char* name;
  const char* check;  // the one that finds it
  std::function<void(CrctlSandbox&)> make;
  bool isError = true;
};

std::function<void(CrctlSandbox&)> Variable(const std::string& name, const std::string& value) {
  return [=](CrctlSandbox& sandbox) { sandbox.environment[name] = value; };
}

std::function<void(CrctlSandbox&)> Preferences(const std::string& content, fs::perms mode = fs::perms::owner_all) {
  return [=](CrctlSandbox& sandbox) {
    sandbox.Put(sandbox.Preferences(), content);
    fs::permissions(sandbox.Preferences(), mode);
  };
}

void ProtectReports(CrctlSandbox& sandbox) { fs::permissions(sandbox.Reports(), fs::perms::owner_read); }
void PutFileForQueue(CrctlSandbox& sandbox) { sandbox.Put(sandbox.Queue(), ""); }
void PutFolderForLock(CrctlSandbox& sandbox) { sandbox.Put(sandbox.Queue() / "crMacLog_A.log.lck/x", ""); }
void RemoveHelper(CrctlSandbox& sandbox) { fs::remove(sandbox.Folder() / "bin/CRDaemon-http"); }
void PutFolderForMarker(CrctlSandbox& sandbox) {
  const fs::path marker = sandbox.Library() / "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt";
  fs::remove(marker);
  sandbox.Put(marker / "x", "");
}
void LinkEvent(CrctlSandbox& sandbox) {
  sandbox.Put(sandbox.Queue() / "x", "");
  fs::create_symlink("x", sandbox.Queue() / "crMacLog_A.log");
}
void DistrustService(CrctlSandbox& sandbox) {
  sandbox.environment["SSL_CERT_FILE"] = sandbox.MakeCertificate("stranger");
}

const std::string open = "<plist version=\"1.0\"><dict><key>always_never_send</key><integer>";
const std::string close = "</integer></dict></plist>";

class BrokenSetUp : public testing::TestWithParam<Breach> {};

TEST_P(BrokenSetUp, IsFoundAndNamed) {
  CrctlSandbox sandbox;
  GetParam().make(sandbox);
  const Outcome outcome = sandbox.Crctl({"doctor", "--json"});
  EXPECT_EQ(StateOf(outcome, GetParam().check), GetParam().isError ? "error" : "warning") << outcome.output;
  EXPECT_EQ(outcome.status, GetParam().isError ? 1 : 0) << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(
    E2e, BrokenSetUp,
    testing::Values(
        Breach{"NoBus", "session-bus", Variable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus")},
        Breach{"DeadDisplay", "windows", Variable("DISPLAY", ":98765"), false},
        Breach{"HelperMissing", "helper", RemoveHelper},
        Breach{"FileForHome", "library", Variable("HOME", "/dev/null")},
        Breach{"ReportsProtected", "reports-folder", ProtectReports},
        Breach{"FileForQueue", "queue-folder", PutFileForQueue},
        Breach{"FolderForMarker", "debug-log", PutFolderForMarker, false},
        Breach{"PreferencesDamaged", "preferences", Preferences("damaged")},
        Breach{"PreferencesUnreadable", "preferences", Preferences(open + "1" + close, fs::perms::none)},
        Breach{"PreferencesOpen", "preferences", Preferences(open + "1" + close, fs::perms::all), false},
        Breach{"NeverSend", "never-send", Preferences(open + "2" + close), false},
        Breach{"EventIsALink", "queue", LinkEvent}, Breach{"FolderForLock", "lock-files", PutFolderForLock},
        Breach{"PlainHttp", "service-url", Variable("CRDAEMON_INGEST_URL", "http://ingest.invalid/ingest")},
        Breach{"UnknownName", "service-name", Variable("CRDAEMON_INGEST_URL", "https://ingest.invalid/ingest")},
        Breach{"NobodyListens", "service-answer", Variable("CRDAEMON_INGEST_URL", "https://127.0.0.1:1/ingest")},
        Breach{"Untrusted", "service-tls", DistrustService}),
    [](const auto& test) { return test.param.name; });

TEST(Doctor, RunsAreLookedAt) {
  CrctlSandbox sandbox;
  const demo::HostRun run = sandbox.StartWatchedHost({.elements = {{5, "/nonexistent/reporter"}, {25, "1"}}});
  const Outcome outcome = sandbox.Crctl({"doctor", "--json", "--pid", std::to_string(run.host.Id())});
  EXPECT_EQ(StateOf(outcome, "reporter"), "error") << outcome.output;
  EXPECT_EQ(StateOf(outcome, "throttling"), "warning") << outcome.output;
  EXPECT_EQ(StateOf(sandbox.Crctl({"doctor", "--json", "--app", "Nobody's"}), "daemon"), "error");

  // A daemon of root's is not this user's business.
  if (geteuid() != 0) GTEST_SKIP() << "only root can start one for another user";
  const std::string program = sandbox.Folder() / "bin/CRDaemon";
  fs::remove(program);
  fs::copy_file("/bin/sleep", program);
  const demo::Program other(fork());
  if (other.Id() == 0) _exit(execl(program.c_str(), program.c_str(), "60", "1", nullptr));
  const auto isThere = [&] { return demo::ContentOf("/proc/" + std::to_string(other.Id()) + "/comm") == "CRDaemon\n"; };
  ASSERT_TRUE(demo::Eventually(isThere));
  EXPECT_EQ(StateOf(sandbox.Crctl({"doctor", "--json", "--pid", "60"}), "daemon"), "error");
}

}  // namespace
