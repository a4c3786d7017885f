#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Clock.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

const std::string dumps = "/Users/anna/Library/Logs/Malvex/CrashPadDumps";
const std::string run = dumps + "/Photo/7.1.0/1042/4711";
const std::string first = "0123abcd-4567-89AB-cdef-0123456789ab";
const std::string second = "ZZZZzzzz-4567-89AB-cdef-0123456789ab";

struct Dump : testing::Test {
  SimulatedMachine machine;
  MyDaemon daemon;

  void SetUp() override {
    daemon.processId = "4711";
    daemon.appName = "Photo";
    daemon.malvexProductVersion = "7.1.0";
    daemon.malvexProductBuild = "1042";
    ProcessWide().startDate = platform::Now();
  }
};

}  // namespace

TEST_F(Dump, WhichDumpIsAttached) {
  const struct {
    const char* name;
    std::vector<std::string> files;  // below "pending"; "-" before one made before the daemon started
    std::string chosen;
  } cases[] = {
      {"no folder", {}, ""},
      {"compressed after plain", {first + ".dmp", second + ".dmp.gz"}, second + ".dmp.gz"},
      {"first compressed", {first + ".dmp.gz", second + ".dmp.gz"}, first + ".dmp.gz"},
      {"last plain", {first + ".dmp", second + ".dmp", "x.dmp"}, second + ".dmp"},
      {"old compressed", {"-" + first + ".dmp.gz", second + ".dmp"}, second + ".dmp"},
      {"old", {"-" + first + ".dmp.gz", "-" + second + ".dmp"}, ""},
      {"any character for a dot",
       {first + "\xC3\xA9"
                "dmp_gz"},
       first + "\xC3\xA9"
               "dmp_gz"},
      {"no line break for a dot", {first + "\ndmp"}, ""},
      {"elsewhere", {"sub/" + first + ".dmp", first + ".dmp/x"}, ""},
      {"other names", {first + ".dmpx", "x" + first + ".dmp", first + ".dmp.g", "." + first + ".dmp", first}, ""},
      {"not of GUID form", {first.substr(1) + ".dmp", "g_23abcd" + first.substr(8) + ".dmp"}, ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    machine.disk = Disk();
    for (const auto& file : row.files) {
      const bool old = file[0] == '-';
      machine.disk.Put(run + "/pending/" + file.substr(old ? 1 : 0), "", platform::Now() - (old ? 1ns : 0ns));
    }
    daemon.SetCrashPadDumpFile();
    EXPECT_EQ(daemon.crashPadDumpFile, row.chosen.empty() ? "" : run + "/pending/" + row.chosen);
    EXPECT_EQ(daemon.isDumpAttached, row.chosen.empty() ? "No" : "Yes");
    EXPECT_EQ(daemon.IsCrashPadEnabled(), !row.chosen.empty());
  }
}

TEST_F(Dump, OnlyARegularFileIsADump) {
  machine.disk.Make(Disk::Kind::link, run + "/pending/" + first + ".dmp.gz");
  machine.disk.Make(Disk::Kind::fifo, run + "/pending/" + second + ".dmp");
  daemon.SetCrashPadDumpFile();
  EXPECT_EQ(daemon.crashPadDumpFile, "");
  daemon.crashPadDumpFile.reset();
  EXPECT_TRUE(daemon.IsCrashPadEnabled());
}

TEST_F(Dump, OnlyTheFolderOfThisRunIsRemoved) {
  daemon.removeCrashPadDumpDirectory();
  daemon.SetCrashPadDumpFile();
  daemon.removeCrashPadDumpDirectory();
  EXPECT_TRUE(machine.log.empty());  // there is none

  machine.disk.Put(run + "/pending/" + first + ".dmp");
  daemon.removeCrashPadDumpDirectory();
  EXPECT_FALSE(machine.disk.Has(run));
  EXPECT_TRUE(machine.disk.Has(dumps + "/Photo/7.1.0/1042"));
  EXPECT_TRUE(machine.log.empty());
}

TEST_F(Dump, WhateverTheArgumentsSayNothingElseIsRemoved) {
  const struct {
    const char *name, *version, *build, *processId, *kept;
  } cases[] = {
      {"..", "..", "Preferences", "4711", "/Users/anna/Library/Logs/Preferences/4711"},
      {"Photo", "..", "Other", "4711", "/Users/anna/Library/Logs/Malvex/CrashPadDumps/Other/4711"},
      {"/Users/anna", "Documents", "", "4711", "/Users/anna/Documents/4711"},
      {"a/b", "", "", "4711", "/Users/anna/Library/Logs/Malvex/CrashPadDumps/a/b/4711"},
      {"Photo", "", "", "", "/Users/anna/Library/Logs/Malvex/CrashPadDumps/Photo"},
      {"", "", "", "", "/Users/anna/Library/Logs/Malvex/CrashPadDumps"},
      {"Photo", "", "", "..", "/Users/anna/Library/Logs/Malvex/CrashPadDumps"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    machine.log.clear();
    machine.disk.Put(std::string(row.kept) + "/pending/file");
    daemon.appName = row.name;
    daemon.malvexProductVersion = row.version;
    daemon.malvexProductBuild = row.build;
    daemon.processId = row.processId;
    daemon.crashPadDumpDirectory.Set("");
    daemon.SetCrashPadDumpFile();
    daemon.removeCrashPadDumpDirectory();
    EXPECT_TRUE(machine.disk.Has(std::string(row.kept) + "/pending/file"));
    EXPECT_EQ(machine.log.size(), 1U);
    for (const auto& line : machine.log) EXPECT_EQ(line.level, "ERROR");
  }
  const std::string outside = "/Users/anna/Library/Documents/4711/pending";
  machine.disk.Put(outside + "/file");
  daemon.processId = "4711";
  for (const auto& text :
       {outside, std::string("/4711/pending"), std::string("4711/pending"), std::string("/pending")}) {
    daemon.crashPadDumpDirectory.Set(text);
    daemon.removeCrashPadDumpDirectory();
    EXPECT_TRUE(machine.disk.Has(outside + "/file"));
  }
}

TEST_F(Dump, NoLinkOnTheWayIsFollowed) {
  for (const auto& link : {std::string("/Users/anna/Library/Logs/Malvex"), dumps, dumps + "/Photo", run}) {
    SCOPED_TRACE(link);
    machine.disk.Put(run + "/pending/file");
    daemon.SetCrashPadDumpFile();
    machine.disk.Find(link)->kind = Disk::Kind::link;
    machine.log.clear();
    daemon.removeCrashPadDumpDirectory();
    EXPECT_TRUE(machine.disk.Has(run + "/pending/file"));
    EXPECT_TRUE(machine.Logged("refused to remove dump folder " + run));
    machine.disk.Find(link)->kind = Disk::Kind::folder;
  }
}
