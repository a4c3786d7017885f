#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "CRDaemon/CrashedModule.h"
#include "CRDaemon/MyDaemon.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

constexpr char moduleFile[] = "~/Library/Preferences/Photo/7.1/CrashModule.txt";
const std::string none = "(nothing)";

// As the system writes it: the end of "usedImages" is the first "}\n" of the body, and what follows is of no interest.
std::string Report(const std::string& threads, const std::string& images) {
  return "{\"app_name\":\"Photo\"}\n{\n  \"pid\" : 4711,\n  \"threads\" : " + threads + ",\n  \"usedImages\" : [\n  " +
         images + "}\n],\n  \"sharedCache\" : {\n  \"base\" : 6442450944\n},\n  \"cut\" : [";
}
const std::string images = R"({"CFBundleIdentifier":" com.a ","name":"A"}, {"name":" B\t"}, {"CFBundleIdentifier":"  ",
  "name":"C"}, {"size":1}, {"na\u006de":"last")";

std::string Repeated(const std::string& text, std::size_t times) {
  std::string result;
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

}  // namespace

TEST(CrashedModule, OfAJsonReport) {
  const std::pair<const char*, std::string> cases[] = {
      {R"([{"id":0},{"triggered":true,"queue":" main ","frames":[{"imageIndex":0}]}])", "main\ncom.a\n"},
      {R"([{"triggered":false,"frames":[{"symbol":"x"},{"imageIndex":1},{"imageIndex":0}]}])", "B\n"},
      {R"([{"triggered":1,"queue":"q","frames":[{"imageIndex":2}]}])", "q\n\n"},
      {R"([{"triggered":1,"queue":"q","frames":[{"imageIndex":3}]}])", "q\n\n"},
      {R"([{"triggered":1,"frames":[{"imageIndex":4}]}])", "last\n"},
      {R"([{"triggered":1,"frames":[{"imageIndex":5}]}])", "\n"},
      {R"([{"triggered":1,"frames":[{"imageIndex":-1}]}])", "\n"},
      {R"([{"triggered":1,"queue":"q"},{"triggered":1,"queue":"r","frames":[{"imageIndex":"1"}]}])", "q\nr\nB\n"},
      {R"([{"triggered":1,"queue":"q","frames":[]},{"triggered":1,"queue":"r","frames":[{"imageIndex":1}]}])", "q\n\n"},
      {R"([{"queue":"q","frames":[{"imageIndex":1}]}])", "\n"},
      {R"([7,{"triggered":1,"queue":7,"frames":{}}])", "\n"},
      {R"([{"triggered":1,"queue":"\"]}\u0020\u00e4","frames":[{"a":{"imageIndex":0}},{"imageIndex":[1]}]}])",
       "\"]} \xC3\xA4\ncom.a\n"},
      {R"([],"threads":[{"triggered":1,"triggered":2,"frames":[{"imageIndex":1},{"imageIndex":0}]}])", "B\n"},
      {R"({})", none},
      {R"([)", none},
  };
  for (const auto& [threads, lines] : cases) {
    EXPECT_EQ(crashedmodule::LinesFromJson(Report(threads, images)).value_or(none), lines) << threads;
  }
  for (const char* report : {"", "{}\n", "{}\n{\"usedImages\":[\n{}\n]}", "{\"threads\":[]}\n[\n{}\n"}) {
    EXPECT_EQ(crashedmodule::LinesFromJson(report).value_or(none), none) << report;
  }
  EXPECT_EQ(crashedmodule::LinesFromJson("{}\n{\"threads\":[],\"usedImages\":[\n{}\n]}"), "\n");
}

TEST(CrashedModule, OfATextReport) {
  const std::string queue = "Thread 0 Crashed:: Dispatch queue: \tcom.main \n";
  const std::string frame = "0   libsystem.dylib \t 0x00007fff __kill + 10\n";
  const std::pair<std::string, std::string> cases[] = {
      {"a\n" + queue + frame + "1   Other", "com.main\nlibsystem.dylib\n"},
      {"a\nthread 1 crashed:: q\n0\t\tPhoto", "q\nPhoto\n"},
      {queue + "0\n", "com.main\n"},
      {queue + "\n", "com.main\n"},
      {queue.substr(0, queue.size() - 1), ""},
      {"Thread 0 Crashed:\n" + frame, ""},
      {queue + frame + queue + frame, ""},
      {"", ""},
  };
  for (const auto& [report, lines] : cases) EXPECT_EQ(crashedmodule::LinesFromText(report), lines) << report;
}

// 1000 UTF-16 units: what lies beyond does not count, not even half a name.
TEST(CrashedModule, OnlyTheBeginningOfALongReportCounts) {
  const auto lines = [](std::string_view first, const std::string& rest, const char* last) {
    std::string report("Crashed:: ");
    return crashedmodule::LinesFromText(report.append(first).append(rest).append(last).append("\n0 Photo"));
  };
  for (const char* character : {"x", "\xC3\xA9", "\xF0\x9F\x98\x80"}) {
    const std::string queue = Repeated(character, std::string(character).size() == 4 ? 491 : 982);
    EXPECT_TRUE(lines("", queue, "").ends_with("\nPhoto\n"));
    EXPECT_TRUE(lines("y", queue, "").ends_with("\nPhot\n"));
    EXPECT_EQ(lines("", queue, "12345678"), "");
  }
}

TEST(CrashedModule, TheFileIsEmptyUntilItIsWhole) {
  const std::string whole = Report(R"([{"triggered":true,"frames":[{"imageIndex":0}]}])", images);
  const std::string text = "Crashed:: q\n0 Photo";
  const struct {
    const char *name, *session;
    bool json;
    std::string report, content;
  } cases[] = {
      {"JSON", "SkylanceSessionId:  \t42 ", true, whole, "42\ncom.a\n"},
      {"no session", "SkylanceSessionId:  ", true, whole, "\ncom.a\n"},
      {"unreadable", "SkylanceSessionId:  42", true, "\xFF" + whole, ""},
      {"not JSON", "SkylanceSessionId:  42", true, text, ""},
      {"text", "SkylanceSessionId:  42", false, text, "42\nq\nPhoto\n"},
      {"JSON on a system with text reports", "SkylanceSessionId:  42", false, whole, "42\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    SimulatedMachine machine;
    machine.reportsAreJson = row.json;
    machine.disk.Put(moduleFile, "of an older run");
    machine.disk.Put(userReports + std::string("Photo-1.ips"), row.report);
    MyDaemon daemon;
    daemon.appName = "Photo";
    daemon.appVersion = "7.1";
    daemon.skylanceSessionID = row.session;
    daemon.LogCrashedModuleInfo("Photo-1.ips");
    EXPECT_EQ(machine.disk.Text(moduleFile), row.content);
  }
}

TEST(CrashedModule, NoFileOutsideThePreferences) {
  SimulatedMachine machine;
  MyDaemon daemon;
  daemon.appName = "..";
  daemon.appVersion = "Documents";
  daemon.LogCrashedModuleInfo("Photo-1.ips");
  EXPECT_FALSE(machine.disk.Has("~/Library/Documents/CrashModule.txt"));
  EXPECT_EQ(machine.log.at(0).level, "ERROR");
}
