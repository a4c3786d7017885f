#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

constexpr char newHardware[] = "~/Library/Logs/DiagnosticReportsForNewHardware/";

class Scan : public testing::Test {
 protected:
  Scan() {
    daemon.appName = "Photo";
    daemon.processId = "4711";
  }
  MyDaemon::Text ReadFolder(MyDaemon::FoundReports& found) {
    return daemon.readDiagnosticReports(GetUserDiagnosticPath(), *daemon.appName, found);
  }

  SimulatedMachine machine;
  MyDaemon daemon;
};

}  // namespace

TEST_F(Scan, WhichFilesBelongToTheRun) {
  const auto now = platform::Now();
  const std::string json = JsonReport();
  const struct {
    std::string name;
    std::string text;
    std::optional<platform::Time> created;
    bool jsonSystem;
    std::string kind;  // empty: none of the run
  } cases[] = {
      {"Photo-1.ips", json, now, true, "crash"},
      {"PhotoHelper.ips", json, now, true, "crash"},
      {"P.old Photo.ips", json, now, true, "crash"},
      {"MyPhoto.ips", json, now, true, ""},
      {"Phot.ips", json, now, true, ""},
      {"Photo-1.ips", json, now - 1ns, true, ""},
      {"Photo-1.ips", json, std::nullopt, true, "crash"},
      {"Photo-1.crash", json, now, true, ""},
      {"Photo-1.crash", json, now, false, "crash"},
      {"Photo-1.ips", json, now, false, ""},
      {"Photo", json, now, true, ""},
      {"Photo.ips.synced", json, now, true, ""},
      {"Photo-1.hang", json, now, true, "hang"},
      {"Photo_4711.hang", json, now, true, "hang"},
      {"Photo_4711.ips", json, now, true, "signal"},
      {"Photo-1.ips", TextReport(), now, true, "crash"},
      {"Photo-1.ips", TextReport(47110), now, true, ""},
      {"Photo-1.ips", JsonReport(47110), now, true, "crash"},
      {"Photo-1.ips", JsonReport(4712), now, true, ""},
      {"Photo-1.ips", "{}\n\"pid\" : 1\n4711\n", now, true, ""},
      {"Photo-1.ips", json + "\xff", now, true, ""},
      {"Photo-1.ips", "", now, true, ""},
  };
  for (const auto& [name, text, created, jsonSystem, kind] : cases) {
    SCOPED_TRACE(testing::Message() << name << ": " << text);
    machine.reportsAreJson = jsonSystem;
    machine.disk.Put(userReports + name, text, created);
    MyDaemon::FoundReports found;
    const auto decisive = ReadFolder(found);
    EXPECT_EQ(found.crashFileApple, kind == "crash" ? name : "");
    EXPECT_EQ(found.crashFileCR, kind == "signal" ? name : "");
    EXPECT_EQ(found.hangFileApple, kind == "hang" ? name : "");
    EXPECT_EQ(decisive.value_or(""), found.crashFileApple);
    machine.disk.Remove(GetUserDiagnosticPath() + "/" + name);
  }
}

TEST_F(Scan, MissingFoldersAreMadeAndFailingOnesSkipped) {
  EXPECT_EQ(daemon.getDiagnosticReports(), "-1");
  for (const auto* folder : {userReports, newHardware, systemReportsForNewHardware})
    EXPECT_TRUE(machine.disk.Has(folder));
  machine.disk.Fail(userReports, std::errc::permission_denied);
  machine.disk.Put(std::string(systemReportsForNewHardware) + "Photo-1.ips", JsonReport());
  EXPECT_EQ(daemon.getDiagnosticReports(), "Photo-1.ips");
}

// u, n: the user's folder and the one for new hardware; s, w: the system's two.
TEST_F(Scan, TheChoiceOverTheFolders) {
  const std::map<char, std::string> folders = {
      {'u', userReports}, {'n', newHardware}, {'s', systemReports}, {'w', systemReportsForNewHardware}};
  const struct {
    const char* files;
    bool canBeSignal;
    std::string chosen, code;
    const char* left;  // in the user's folder
  } cases[] = {
      {"uPhoto-1.ips sPhoto-2.ips", false, "Photo-1.ips", "0", "Photo-1.ips"},
      {"sPhoto-2.ips", false, "Photo-2.ips", "0", "Photo-2.ips"},
      {"sPhoto-2.ips wPhoto-3.ips", false, "Photo-3.ips", "0", ""},
      {"nPhoto-4.ips wPhoto-3.ips", false, "Photo-4.ips", "0", "Photo-4.ips"},
      {"wPhoto-3.ips", false, "Photo-3.ips", "0", ""},
      {"uPhoto_4711.ips sPhoto-2.ips", true, "Photo-2.ips", "0", "Photo-2.ips"},
      {"uPhoto_4711.ips sPhoto.hang", true, "Photo_4711.ips", "3", "Photo_4711.ips Photo.hang"},
      {"uPhoto_4711.ips uPhoto.hang sPhoto-2.ips", true, "Photo_4711.ips", "3", "Photo_4711.ips Photo.hang"},
      {"uPhoto.hang uPhoto_4711.ips sPhoto-2.ips", true, "Photo_4711.ips", "3", "Photo.hang Photo_4711.ips"},
      {"uPhoto_4711.ips", true, "Photo_4711.ips", "1", "Photo_4711.ips"},
      {"sPhoto.hang", true, "Photo.hang", "2", "Photo.hang"},
      {"uPhoto_4711.ips sPhoto.hang", false, "-1", "0", "Photo_4711.ips"},
  };
  for (const auto& [files, canBeSignal, chosen, code, left] : cases) {
    SCOPED_TRACE(files);
    machine.disk = Disk();
    ProcessWide() = InitialProcessValues();
    ProcessWide().exitOnExitZero = !canBeSignal;
    for (const auto& file : Pieces(files, ' ')) machine.disk.Put(folders.at(file[0]) + file.substr(1), JsonReport());
    EXPECT_EQ(daemon.getDiagnosticReports(), chosen);
    EXPECT_EQ(ProcessWide().isCRGeneratedReport, code);
    EXPECT_EQ(ProcessWide().isSignal, code != "0");
    EXPECT_EQ(ProcessWide().isAppleReportAvailable, code == "0" && chosen != "-1");
    EXPECT_EQ(ProcessWide().additionalHangFile, code == "3" ? GetUserDiagnosticPath() + "/Photo.hang" : "");
    EXPECT_EQ(machine.disk.Names(userReports), *left == '\0' ? std::vector<std::string>() : Pieces(left, ' '));
  }
}

TEST_F(Scan, ACopyThatFailsIsNoReportAndOneThatIsThereIsKept) {
  machine.disk.Put(userReports + std::string("Photo-7.ips"), "kept");
  machine.disk.Put(std::string(systemReports) + "Photo-7.ips", "new");
  EXPECT_TRUE(CopyCrashFileToUserLibrary("Photo-7.ips"));
  EXPECT_EQ(machine.disk.Text(userReports + std::string("Photo-7.ips")), "kept");
  machine.disk.full = true;
  ProcessWide().exitOnExitZero = false;
  machine.disk.Put(std::string(systemReports) + "Photo.hang", TextReport());
  EXPECT_EQ(daemon.getDiagnosticReports(), "-1");
  machine.disk.Put(std::string(userReports) + "Photo_4711.ips", JsonReport());
  EXPECT_EQ(daemon.getDiagnosticReports(), "-1");
  EXPECT_TRUE(machine.Logged("Error while copying hang file"));
  EXPECT_EQ(ProcessWide().isCRGeneratedReport, "1");
  EXPECT_EQ(ProcessWide().additionalHangFile, "");
  machine.disk.Put(std::string(systemReports) + "Photo-1.ips", JsonReport());
  EXPECT_EQ(daemon.getDiagnosticReports(), "-1");
  EXPECT_TRUE(machine.Logged("Error while copying crash file to user library "));
  EXPECT_FALSE(ProcessWide().isAppleReportAvailable);
}

TEST_F(Scan, CleanupRemovesWhatIsOlderThanTwelveMinutes) {
  const auto now = platform::Now();
  const std::string folder = userReports;
  const std::pair<const char*, platform::Time> files[] = {{"Photo_11.ips", now - 11min},
                                                          {"Photo_12.ips", now - 12min},
                                                          {"Photo_12+.ips", now - 12min - 1ns},
                                                          {"Photo_13.ips", now - 13min},
                                                          {"Photo-13.ips", now - 13min}};
  for (const auto& [name, created] : files) machine.disk.Put(folder + name, "", created);
  machine.disk.Put(folder + "Photo_folder/x");
  machine.disk.Find(GetUserDiagnosticPath() + "/Photo_folder")->created = now - 13min;
  const auto all = machine.disk.Names(folder);
  daemon.appName.reset();
  daemon.CleanupDiagnostics(GetUserDiagnosticPath());
  EXPECT_EQ(machine.disk.Names(folder), all);
  daemon.appName = "Photo";
  daemon.CleanupDiagnostics(GetUserDiagnosticPath());
  EXPECT_EQ(machine.disk.Names(folder), Pieces("Photo_11.ips|Photo_12.ips|Photo-13.ips|Photo_folder"));
}

TEST_F(Scan, WhenAReportCanBeProcessed) {
  const std::tuple<std::function<void()>, bool, bool> cases[] = {
      {[] {}, false, false},
      {[&] { daemon.isWindowExist = false; }, false, false},
      {[&] { daemon.windowId = "7"; }, false, false},
      {[&] { daemon.windowId = "7", daemon.isWindowExist = false; }, true, false},
      {[&] { daemon.currentNumberOfProcesses = 0; }, true, false},
      {[&] { daemon.appleDialogGoDownCount = 3; }, false, false},
      {[&] { daemon.appleDialogGoDownCount = 4; }, true, true},
      {[&] { daemon.problemReporterDied = true; }, true, true},
      {[] { ProcessWide().isSignal = true; }, true, true},
      {[] { ProcessWide().isAppleReportAvailable = true; }, true, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    const auto& [set, available, evenWithProblemReporter] = row;
    ProcessWide() = InitialProcessValues();
    daemon.windowId.reset();
    daemon.isWindowExist = true;
    daemon.currentNumberOfProcesses = daemon.lastNumberOfProcesses = 1;
    daemon.daemonWaitTimeInSeconds = 3;
    daemon.appleDialogGoDownCount = 0;
    daemon.problemReporterDied = false;
    set();
    daemon.problemReporterFound = false;
    EXPECT_EQ(daemon.IsReportAvailableToBeProcessed(), available);
    daemon.problemReporterFound = true;
    EXPECT_EQ(daemon.IsReportAvailableToBeProcessed(), evenWithProblemReporter);
  }
}

TEST_F(Scan, ASignalReportIsWaitedForOnePass) {
  ProcessWide().isSignal = true;
  for (const auto& [passes, goesOn] : {std::pair(1, 0), {2, 1}}) {
    daemon.crashLogCreateWaitTime = passes;
    EXPECT_EQ(daemon.SearchCrashLog(), goesOn) << passes;
  }
}

TEST_F(Scan, WhatIsRefusedIsNamedOncePassedOverAndKept) {
  const std::string folder = systemReports;
  for (const char* name : {"Photo-1.ips", "Photo\n2.ips"})
    machine.disk.Make(Disk::Kind::fifo, userReports + std::string(name));
  machine.disk.Make(Disk::Kind::link, folder + "Photo-3.ips");
  machine.disk.Put(newHardware + std::string("Photo-3.ips"), JsonReport());
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(daemon.getDiagnosticReports(), "Photo-3.ips");
  EXPECT_EQ(machine.disk.Text(userReports + std::string("Photo-3.ips")), JsonReport());
  const auto refused = [](const std::string& path, const char* why) {
    return "refused to read report " + path + ": " + why;
  };
  EXPECT_EQ(machine.CountLogged(refused(UserReportPath("Photo-1.ips"), "No such device")), 1U);
  EXPECT_EQ(machine.CountLogged(refused(UserReportPath("Photo\\x0a2.ips"), "No such device")), 1U);
  EXPECT_EQ(machine.CountLogged(refused(folder + "Photo-3.ips", "Too many levels of symbolic links")), 1U);

  for (int i = 0; i < 100; ++i) LogRefused("/" + std::to_string(i), "");
  EXPECT_TRUE(machine.Logged("no more refused files are named"));
  EXPECT_LE(machine.log.size(), 200U);
}
