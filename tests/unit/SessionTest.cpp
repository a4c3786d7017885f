#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Preferences.h"
#include "tests/simulated/SimulatedMachine.h"
#include "utilities/source/Glimmer/Glimmer.h"

namespace {

using platform::Dictionary;
using platform::Value;

constexpr char newer[] = "~/Library/Logs/Malvex/GlimmerXT/SessionInfo/";
constexpr char older[] = "~/Library/Logs/Malvex/Glimmer/SessionInfo/";
constexpr char transport[] = "~/Library/Logs/Malvex/LogFerry2XT/";
constexpr char sessionFile[] = "/Users/anna/session.sllog";
const std::string prefix = "SkylanceSessionId:  ";

struct Session : testing::Test {
  SimulatedMachine machine;
  MyDaemon daemon;

  void SetUp() override {
    daemon.processId = "4711";
    daemon.appName = "Photo";
    daemon.skylanceProductFamily = "Imaging";
    daemon.skylanceProductName = "Photo";
  }
  void Register(const Value& value) {
    ASSERT_TRUE(platform::SetPersistentDomain("com.malvex.glimmerxt", {{"CRProcessor", value}}));
  }
};

}  // namespace

TEST_F(Session, WhichComponentOfWhichName) {
  const struct {
    const char *family, *name;
    std::vector<std::string> newerNames, olderNames;
    const char* session;
  } cases[] = {
      {"Imaging", "Photo", {"a_Imaging_Photo_S1_4711_Photo_x"}, {}, "S1"},
      {" Imaging\t", " Photo", {"a_Imaging_Photo_S1_4711_Photo"}, {}, "S1"},
      {"F_1", "P_2_3", {"a_F_1_P_2_3_6_S7_4711_Photo"}, {}, "S7"},
      {"Imaging", "", {"a_b_c_S3_4711_Photo"}, {}, "S3"},
      {"", "Photo", {"a_b_4711_Photo.sif"}, {}, "Photo.sif"},
      {"Imaging", "Photo", {"a_imaging_Photo_S1_4711_Photo", "a_Imaging_Photo_S2_47_Photo"}, {}, ""},
      {"Imaging", "Photo", {"z_Imaging_Photo_S1_4711_Photo", "a_Imaging_Photo_S2_4711_Photo"}, {}, "S1"},
      {"Imaging", "Photo", {"b"}, {"a_Imaging_Photo_S4_4711_Photo"}, "S4"},
      {"Imaging", "Photo", {"a_Imaging_Photo_S1_4711_Photo"}, {"a_Imaging_Photo_S4_4711_Photo"}, "S1"},
      {"F_1", "P", {"_F_1_P_4711_Photo"}, {"_F_1_P_4711_Photo_S6"}, "Photo"},
      {"F_1_2", "P", {"_F_1_2_P_4711_Photo", "_F_1_2_P_4711_Photo_S8"}, {}, "S8"},
      {"a_b_c", "", {"_4711_Photo"}, {}, ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    machine.disk = Disk();
    for (const auto& name : row.newerNames) machine.disk.Put(newer + name);
    for (const auto& name : row.olderNames) machine.disk.Put(older + name);
    machine.log.clear();
    EXPECT_EQ(Glimmer().getGlimmerDataForApp(" Photo", "4711\t", row.family, row.name), row.session);
    EXPECT_EQ(machine.Logged("Skylance session ID: " + std::string(row.session)), *row.session != '\0');
    EXPECT_EQ(machine.Logged("Skylance Session Info file could not be found in GlimmerXT directory"),
              *row.session == '\0' || row.session == std::string("S4"));
  }
  EXPECT_TRUE(machine.Logged("GetGlimmerSessionID: appName:pid:hFamily:hApp Photo:4711\t:a_b_c:"));
  EXPECT_TRUE(machine.Logged("Skylance Session Info file could not be found in Glimmer directory"));
}

TEST_F(Session, TheLookupOfRootIsInTheConsoleUsersLibrary) {
  machine.isRoot = true;
  EXPECT_EQ(Glimmer().UserLibrary, "~<none>/Library");
  EXPECT_EQ(Glimmer().getGlimmerDataForApp("Photo", "4711", "", ""), "");
  machine.consoleUser = "anna";
  machine.disk.Put("/Users/anna" + std::string(older + 1) + "a_b_c_S1_4711_Photo");
  EXPECT_EQ(Glimmer().getGlimmerDataForApp("Photo", "4711", "", ""), "S1");
}

TEST_F(Session, TheTwoLastLogFilesOfASession) {
  for (const char* name : {"c_S1", "a_S1", "d_S2", "b_S1"}) machine.disk.Put(transport + std::string(name), name);
  Glimmer glimmer;
  auto names = glimmer.getLogFilesForSessionID("S1");
  EXPECT_EQ(names, (std::vector<std::string>{"c_S1", "a_S1", "b_S1"}));
  EXPECT_EQ(glimmer.getDatafromLogFiles(names), "b_S1c_S1");
  EXPECT_EQ(names, (std::vector<std::string>{"a_S1"}));
  machine.disk.Put(transport + std::string("a_S1"), "\xFF");
  EXPECT_EQ(glimmer.getDatafromLogFiles(names), "");
  EXPECT_EQ(glimmer.getDatafromLogFiles(names), "");
}

TEST_F(Session, TextsThatAreNotUtf8ChangeNothing) {
  std::string out = "kept";
  const std::string malformed = "a\xC3", good = "\xC3\xA9";
  glimmer::CFStringToString(nullptr, out);
  glimmer::CFStringToString(&malformed, out);
  EXPECT_EQ(out, "kept");
  glimmer::CFStringToString(&good, out);
  EXPECT_EQ(out, good);
}

TEST_F(Session, WhereTheRecordComesFrom) {
  const std::optional<std::string> unset;
  const std::string longest((std::size_t{128} << 10U) - 1, 'x');
  const struct {
    const char* name;
    std::optional<std::string> record, file;  // the file's content
    const char* path;
    std::optional<std::string> becomes;
    bool logged;
  } cases[] = {
      {"already there", prefix + "1", prefix + "2", sessionFile, prefix + "1", false},
      {"no file named yet", unset, unset, "", prefix, true},
      {"no file named, asked before", prefix, unset, "", prefix + "S1", true},
      {"the host's file", prefix, " any record\n", sessionFile, " any record\n", true},
      {"an empty file", unset, "", sessionFile, "", true},
      {"after an empty file", "", unset, sessionFile, prefix + "S1", true},
      {"a file that is no text", prefix, "\xFF", sessionFile, unset, true},
      {"one argument's worth", unset, longest, sessionFile, longest, true},
      {"a byte more", unset, longest + "y", sessionFile, longest, true},
      {"a cut character", unset, longest.substr(1) + "\xC3\xA9", sessionFile, longest.substr(1), true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    machine.disk = Disk();
    machine.log.clear();
    machine.disk.Put(std::string(newer) + "a_Imaging_Photo_S1_4711_Photo");
    if (row.file) machine.disk.Put(sessionFile, *row.file);
    daemon.skylanceSessionID = row.record;
    daemon.glimmerLogPath.Set(row.path);
    daemon.SetSkylanceSessionId();
    EXPECT_EQ(daemon.skylanceSessionID, row.becomes);
    EXPECT_EQ(machine.Logged("Setting Skylance Session ID: " + row.becomes.value_or("")), row.logged);
  }
}

TEST_F(Session, WhenTheCrashProcessorIsStarted) {
  const std::string program = "/GLCrashProcessor.app/Contents/MacOS/GLCrashProcessor";
  const auto path = [](const char* text) { return Value(Dictionary{{"Photo", text}}); };
  const struct {
    const char* name;
    Value registered;
    bool isSignal;
    const char* started;  // the folder of the program, or none
  } cases[] = {
      {"three components", path("/opt/glimmer/Registered.app"), false, "/opt/glimmer"},
      {"no component to cut", path("Here"), false, "Here"},
      {"one component", path("/Registered.app"), false, ""},
      {"a signal", path("/opt/glimmer/Registered.app"), true, nullptr},
      {"no such program", path("/opt/none/Registered.app"), false, nullptr},
      {"another application's", Value(Dictionary{{"Video", "/opt/glimmer/Registered.app"}}), false, nullptr},
      {"no text", Value(Dictionary{{"Photo", Value(std::int64_t{1})}}), false, nullptr},
      {"no dictionary", "/opt/glimmer/Registered.app", false, nullptr},
      {"empty", path(""), false, nullptr},
  };
  for (const char* folder : {"/opt/glimmer", "/Here", ""}) machine.disk.Put(folder + program);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    Register(row.registered);
    ProcessWide().isSignal = row.isSignal;
    machine.started.clear();
    machine.log.clear();
    daemon.MarkSessionAsCrash();
    ASSERT_EQ(machine.started.size(), row.started == nullptr ? 0U : 1U);
    EXPECT_EQ(machine.log.size(), 1U);
    if (row.started == nullptr) continue;
    EXPECT_EQ(machine.started[0].executable, row.started + program);
    EXPECT_EQ(machine.started[0].arguments, (std::vector<std::string>{"Photo", "4711", "", "", "", "", ""}));
  }
  Register(Value(Dictionary{{"Photo", "/opt/glimmer/x"}, {"", "/opt/glimmer/x"}}));
  machine.started.clear();
  for (const auto& [application, process] : {std::pair("Photo", ""), {"", "4711"}}) {
    daemon.appName = application;
    daemon.processId = process;
    daemon.MarkSessionAsCrash();
    EXPECT_TRUE(machine.started.empty());
  }
}
