#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/crctl/CrctlSteps.h"
#include "tests/e2e/Steps.h"

namespace {

namespace fs = std::filesystem;
using platform::Dictionary;
using platform::Value;

TEST(Queue, EventsAreListedShownAndPostedUnlessLocked) {
  CrctlSandbox sandbox;
  for (const std::string id : {"A", "B"}) {
    sandbox.Put(sandbox.Queue() / ("crMacLog_" + id + ".log"),
                "<plist version=\"1.0\"><dict><key>event.guid</key><string>" + id + "</string></dict></plist>");
  }
  const fs::path lock = sandbox.Queue() / "crMacLog_B.log.lck";
  sandbox.Put(lock, "");
  const int held = open(lock.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);

  EXPECT_EQ(sandbox.Crctl({"queue", "list", "--json"}).List("events").size(), 2U);
  EXPECT_NE(sandbox.Crctl({"queue", "show", "A"}).output.find("event.guid: A\n"), std::string::npos);
  EXPECT_EQ(sandbox.Crctl({"queue", "show", "C"}).status, 1);
  EXPECT_EQ(sandbox.Crctl({"queue", "expire"}).status, 0);
  EXPECT_EQ(sandbox.QueuedEvents().size(), 2U) << "too young to expire";
  EXPECT_EQ(sandbox.Crctl({"queue", "post"}).status, 1);
  EXPECT_EQ(sandbox.QueuedEvents(), std::vector<fs::path>{sandbox.Queue() / "crMacLog_B.log"});

  close(held);
  sandbox.TellService("status 503,200");
  EXPECT_NE(sandbox.Crctl({"queue", "post", "B"}).output.find("status 503"), std::string::npos);
  EXPECT_EQ(sandbox.Crctl({"queue", "post", "B"}).status, 0);
  EXPECT_TRUE(fs::is_empty(sandbox.Queue()));
  EXPECT_EQ(sandbox.Received().size(), 3U);
}

// The data of an event without its GUID, which is made anew each time.
Dictionary DataOf(const Value& event) {
  Dictionary data = *event.As<Dictionary>()->Find("data")->As<Dictionary>();
  data.Remove("event.guid");
  return data;
}

TEST(Convert, PrintsWhatIsPosted) {
  CrctlSandbox sandbox;
  demo::HostRun run = sandbox.StartWatchedHost();
  const fs::path report = sandbox.Folder() / "report.ips";
  sandbox.Put(report, demo::SystemReport(run.host.Id()));
  const Outcome converted =
      sandbox.Crctl({"convert", report, "--app", "Photo", "--version", "4.2", "--reporter-version", "2.1", "--user",
                     "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11"});
  ASSERT_EQ(converted.List("events").size(), 1U) << converted.output;
  CrashWithSystemReport(sandbox, run);
  ASSERT_EQ(sandbox.Received().size(), 1U);
  EXPECT_EQ(DataOf(converted.List("events")[0]), DataOf(Value(sandbox.Received()[0].event)));

  sandbox.Put(report, "{} of one line");
  for (const fs::path& bad : {report, sandbox.Folder() / "absent", sandbox.Folder()}) {
    const Outcome refused = sandbox.Crctl({"convert", bad, "--json"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.Text("error").find(bad), std::string::npos) << refused.output;
  }
}

TEST(Stored, ForgettingKeepsForeignKeysAndARunningDaemonsView) {
  CrctlSandbox sandbox;
  sandbox.Put(sandbox.Preferences(),
              "<plist version=\"1.0\"><dict><key>z</key><true/><key>lastCrash_Photo_4.2.0_b7</key><string>Old.ips"
              "</string></dict></plist>");
  demo::HostRun run = sandbox.StartWatchedHost();
  EXPECT_EQ(TextOf(sandbox.Crctl({"stored", "list", "--json"}).List("stored").at(0), "report"), "Old.ips");
  EXPECT_EQ(sandbox.Crctl({"stored", "forget", "--app", "Photo", "--version", "4.2.0"}).status, 1);
  EXPECT_EQ(sandbox.Crctl({"stored", "forget", "--app", "Photo", "--version", "4.2.0", "--build", "b7"}).status, 0);
  const auto values = platform::ParsePropertyList(demo::ContentOf(sandbox.Preferences()));
  ASSERT_TRUE(values);
  EXPECT_EQ(*values->As<Dictionary>()->Find("z"), Value(true));
  EXPECT_EQ(TextOf(*values, "lastCrash_Photo_4.2.0_b7"), "-1");
  CrashWithSystemReport(sandbox, run);
  EXPECT_EQ(sandbox.Received().size(), 1U);
}

TEST(Log, TurnsOnAndOffAndShowsTheHostsOwn) {
  CrctlSandbox sandbox;
  const fs::path marker = sandbox.Library() / "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt";
  EXPECT_EQ(sandbox.Crctl({"log", "on", "--append"}).status, 0);
  EXPECT_EQ(sandbox.Crctl({"log", "off"}).status, 0);
  EXPECT_FALSE(fs::exists(marker));
  EXPECT_EQ(sandbox.Crctl({"log", "show"}).status, 1);
  EXPECT_EQ(sandbox.Crctl({"log", "on"}).status, 0);
  EXPECT_EQ(demo::ContentOf(marker), "append=1\n") << "settings survive";

  demo::Program follower = sandbox.StartProgram({sandbox.Folder() / "bin/crctl", "log", "follow"}, "follow.out");
  const demo::HostRun run = sandbox.StartWatchedHost();
  const std::string host = std::to_string(run.host.Id());
  const Outcome shown = sandbox.Crctl({"log", "show", "--json", "--pid", host});
  EXPECT_EQ(shown.Text("path"), run.logFile);
  EXPECT_GT(shown.List("lines").size(), 10U);
  // The follower may begin after any line that the daemon writes by itself.
  EXPECT_TRUE(demo::Eventually([&] {
    EXPECT_EQ(sandbox.Crctl({"notify", "exceptionDeliveryCompleteion", "--pid", host}).status, 0);
    return demo::ContentOf(sandbox.Folder() / "follow.out").find("VALUE:Exception delivered") != std::string::npos;
  }));
  EXPECT_FALSE(follower.Status());
}

// A terminal would obey them.
TEST(Printing, ControlCharactersOfOthersAreShown) {
  CrctlSandbox sandbox;
  const std::string escape = "\x1b]0;x\x07";
  const std::string event =
      "<plist version=\"1.0\"><dict><key>source.name</key><string>P\xC2\x9Bx</string></dict></plist>";
  sandbox.Put(sandbox.Queue() / ("crMacLog_" + escape + ".log"), event);
  sandbox.Put(sandbox.Preferences(),
              "<plist version=\"1.0\"><dict><key>lastCrash_A\xC2\x9B</key><string>\xC2\x85</string></dict></plist>");
  sandbox.Put(sandbox.Library() / "Logs/Malvex/CrDebugLogs/CRLog-1.txt", "line " + escape + " \xff\n");
  const std::vector<std::string> verbs[] = {{"queue", "list"},
                                            {"queue", "show", escape},
                                            {"queue", "post"},
                                            {"stored", "list"},
                                            {"log", "show"},
                                            {"convert", "/" + escape},
                                            {"doctor", "--reporter", "/" + escape},
                                            {"log", "show", escape}};
  sandbox.TellService("status 503");
  for (auto verb : verbs) {
    for (const bool isJson : {false, true}) {
      const std::string output = sandbox.Crctl(verb).output;
      EXPECT_TRUE(std::none_of(output.begin(), output.end(), [](char byte) {
        return byte != '\n' && (static_cast<unsigned char>(byte) < ' ');
      })) << output;
      EXPECT_EQ(output.find('\xC2'), std::string::npos) << output;
      EXPECT_NE(output.find("\\u00"), std::string::npos) << verb.front() << ": " << output;
      if (!isJson) verb.emplace_back("--json");
    }
  }
}

TEST(Notify, ARealDaemonHearsIt) {
  CrctlSandbox sandbox;
  const demo::HostRun run = sandbox.StartWatchedHost();
  const std::string host = std::to_string(run.host.Id());
  // The daemon may not yet have subscribed.
  EXPECT_TRUE(demo::Eventually([&] {
    EXPECT_EQ(sandbox.Crctl({"notify", "exceptionDeliveryCompleteion", "--pid", host, "--key", "a=b"}).status, 0);
    return run.Logged("Exception delivered");
  }));
  EXPECT_EQ(sandbox.Crctl({"notify", "x", "--pid", host, "--key", "a"}).status, 1);
  for (const auto& wrong : {std::vector<std::string>{}, {"queue"}, {"notify", "x"}, {"nonsense"}}) {
    EXPECT_EQ(sandbox.Crctl(wrong).status, 2);
  }
  EXPECT_EQ(sandbox.Crctl({"--help"}).status, 0);
}

}  // namespace
