#include <gtest/gtest.h>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

constexpr char queue[] = "~/Library/Logs/CrashReporter/Ingest";
constexpr char eventFile[] = "~/Library/Logs/CrashReporter/Ingest/crMacLog_A.log";
constexpr char lockFile[] = "~/Library/Logs/CrashReporter/Ingest/crMacLog_A.log.lck";

std::string Event(const std::string& name) {
  return *platform::WritePropertyList(platform::Value(platform::Dictionary{{"source.name", name}}));
}

class Queue : public testing::Test {
 protected:
  // One daemon's life with the queue: a run at the start, and one for the report when there is one.
  void RunIngester(const std::string& report = "", const std::string& type = "0") {
    ScopedIngester ingester(std::make_unique<Ingester>(" Photo ", " 1.2\t", "9.0 ", " session", "\tuser "));
    ingester->start();
    if (!report.empty()) ingester->submitReport(report, type);
  }
  bool LoggedStart(std::string_view begin) const {
    for (const auto& line : machine_.log) {
      if (line.text.starts_with(begin)) return true;
    }
    return false;
  }

  SimulatedMachine machine_;
};

TEST_F(Queue, StatusBelow400DeliversAndOthersWaitForTheNextRun) {
  struct Case {
    SimulatedMachine::Answer answer;
    bool stays;
  };
  for (const Case& c : {Case{{200}, false}, Case{{399}, false}, Case{{101}, false}, Case{{99}, true}, Case{{400}, true},
                        Case{{500}, true}, Case{{0, "connection refused"}, true}}) {
    machine_.disk.Put(eventFile, Event("Photo"));
    machine_.answers = {c.answer};
    RunIngester();
    EXPECT_EQ(machine_.disk.Has(eventFile), c.stays) << c.answer.status;
    EXPECT_FALSE(machine_.disk.Has(lockFile)) << c.answer.status;
  }
  EXPECT_TRUE(machine_.Logged("failed to send HTTP request with error: connection refused"));
  RunIngester();
  EXPECT_FALSE(machine_.disk.Has(eventFile));
}

TEST_F(Queue, ReportBecomesAPrivateEventThatIsPosted) {
  machine_.disk.Put("/r.ips", TextReport());
  machine_.answers = {{500}, {500}};
  RunIngester("/r.ips", "1");
  const auto left = machine_.disk.Names(queue);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_TRUE(Ingester::shouldProcessReport(left[0])) << left[0];
  EXPECT_EQ(machine_.disk.Find(ProcessWide().REPORTS_DIR + "/" + left[0])->mode, 0600U);
  machine_.disk.LosePower();
  RunIngester();
  ASSERT_EQ(machine_.posted.size(), 3U);
  EXPECT_EQ(machine_.posted[2].Event("event.guid"), machine_.posted[0].Event("event.guid"));
  const std::pair<const char*, const char*> sender[] = {{"source.name", "Photo"},
                                                        {"source.version", "1.2"},
                                                        {"env.fw.version", "9.0"},
                                                        {"event.session_guid", "session"},
                                                        {"event.user_guid", "user"}};
  for (const auto& [key, value] : sender) EXPECT_EQ(machine_.posted[2].Event(key), value);
}

TEST_F(Queue, FullDiskLosesNoEventAndPostsNoneTwice) {
  machine_.disk.Put("/r.ips", TextReport());
  machine_.disk.full = true;
  RunIngester("/r.ips", "1");
  ASSERT_EQ(machine_.posted.size(), 1U);
  EXPECT_EQ(machine_.posted[0].Event("source.name"), "Photo");
  EXPECT_TRUE(LoggedStart("failed to write event: /Users/anna/Library/Logs/CrashReporter/Ingest/crMacLog_"));

  machine_.answers = {{.timesOut = true}};
  machine_.At(machine_.Elapsed() + 1s).Do([this] { machine_.disk.full = false; });
  RunIngester("/r.ips", "1");
  EXPECT_EQ(machine_.disk.Names(queue).size(), 1U);
  RunIngester();
  EXPECT_EQ(machine_.posted.size(), 3U);
  EXPECT_TRUE(machine_.disk.Names(queue).empty());
}

TEST_F(Queue, UnreadableReportStillMakesAnEventButASingleJsonLineNone) {
  RunIngester("/absent.ips", "2");
  machine_.disk.Make(Disk::Kind::fifo, "/fifo.ips");
  RunIngester("/fifo.ips", "2");
  machine_.disk.Put("/single.ips", "{}");
  RunIngester("/single.ips", "0");
  EXPECT_EQ(machine_.posted.size(), 2U);
  EXPECT_EQ(machine_.posted[0].Event("event.value"), "abnormal:hang");
  EXPECT_TRUE(LoggedStart("refused to read report /fifo.ips: "));
  EXPECT_TRUE(LoggedStart("uncaught exception in submitReport: "));
}

TEST_F(Queue, WhatCannotBeUnderstoodIsPostedAndWhatIsRefusedIsKept) {
  machine_.disk.Put(eventFile, "no property list");
  RunIngester();
  ASSERT_EQ(machine_.posted.size(), 1U);
  EXPECT_EQ(machine_.posted[0].Event("env.fw.name"), "Crash Reporter SDK");
  EXPECT_EQ(machine_.posted[0].Event("source.name"), "(absent)");
  machine_.disk.Put(eventFile, Event("Photo"));
  machine_.disk.Fail(eventFile, std::errc::permission_denied);
  RunIngester();
  ASSERT_EQ(machine_.posted.size(), 2U);
  EXPECT_EQ(machine_.posted[1].Event("source.name"), "(absent)");
  machine_.disk = Disk();

  for (const auto kind : {Disk::Kind::link, Disk::Kind::fifo}) {
    machine_.disk.Make(kind, eventFile);
    RunIngester();
    EXPECT_TRUE(machine_.disk.Has(eventFile));
  }
  machine_.disk.Put(eventFile, std::string((std::size_t{4} << 20U) + 1, 'x'));
  RunIngester();
  machine_.disk.Fail(eventFile, std::errc::io_error);
  RunIngester();
  EXPECT_TRUE(machine_.disk.Has(eventFile));
  EXPECT_EQ(machine_.posted.size(), 2U);
}

TEST_F(Queue, LockOfSomebodyElseIsRespectedAndLeftInPlace) {
  machine_.disk.Put(eventFile, Event("Photo"));
  machine_.disk.Put(lockFile);
  machine_.disk.LockForSomebodyElse(lockFile);
  RunIngester();
  EXPECT_TRUE(machine_.posted.empty());
  EXPECT_TRUE(machine_.disk.Has(lockFile));
  EXPECT_TRUE(LoggedStart(
      "failed to lock file: /Users/anna/Library/Logs/CrashReporter/Ingest/crMacLog_A.log.lck with error: 11"));
}

TEST_F(Queue, RunHoldsTheLockOfOneEventAndAHandfulOfRefusedOnes) {
  constexpr std::size_t events = 100;
  for (std::size_t i = 0; i < events; ++i) {
    const std::string path = std::string(queue) + "/crMacLog_" + std::to_string(i) + ".log";
    machine_.disk.Put(path, Event("Photo"));
    if (i % 2 == 0) machine_.disk.LockForSomebodyElse(path + ".lck");
  }
  {
    UploadRun run{.http = upload::ServiceClient()};
    Ingester::processReports(run);
    EXPECT_GT(run.refusedLocks.size(), 0U);
    EXPECT_LT(run.refusedLocks.size(), events / 4) << "a descriptor each";
  }
  EXPECT_EQ(machine_.posted.size(), events / 2);
  EXPECT_EQ(machine_.disk.Names(queue).size(), events) << "an event and its lock for each one refused";
}

TEST_F(Queue, EventDeliveredByAnotherDaemonMeanwhileIsSkipped) {
  const std::string path = ProcessWide().REPORTS_DIR + "/crMacLog_A.log";
  machine_.disk.Put(queue + std::string("/other"));
  {
    UploadRun run{.http = upload::ServiceClient()};
    EXPECT_FALSE(Ingester::processReport(path, run));
  }
  EXPECT_TRUE(machine_.posted.empty());
  EXPECT_FALSE(machine_.disk.Has(lockFile));
  EXPECT_TRUE(machine_.Logged("processed report at path: " + path + " with rc: 0"));
}

// While one event is on its way the next one is read, which must not be what counts.
TEST_F(Queue, EventIsPostedAsItStandsOnceItsLockIsHeld) {
  const auto path = [](const char* name) { return std::string(queue) + "/crMacLog_" + name + ".log"; };
  const std::vector<const char*> names = {"A", "B", "C", "D", "E"};
  for (const char* name : names) machine_.disk.Put(path(name), Event(name));
  machine_.answers = {
      {.beforeIt = [&] { machine_.disk.Put(path("B"), Event("B, written anew")); }},
      {.beforeIt = [&] { machine_.disk.LockForSomebodyElse(path("C") + ".lck"); }},
      {.beforeIt = [&] { machine_.disk.Remove(ProcessWide().REPORTS_DIR + "/crMacLog_E.log"); }},
  };
  RunIngester();
  std::vector<std::string> posted;
  for (const auto& post : machine_.posted) posted.push_back(post.Event("source.name"));
  EXPECT_EQ(posted, (std::vector<std::string>{"A", "B, written anew", "D"}));
  EXPECT_TRUE(machine_.disk.Has(path("C")));
}

TEST_F(Queue, FilesExpireAfterThirtyDaysWhateverTheyAre) {
  const auto now = machine_.Now();
  const auto limit = std::chrono::hours(30 * 24);
  machine_.disk.Put(std::string(queue) + "/old.txt", "", now - limit - 1ms);
  machine_.disk.Put(std::string(queue) + "/crMacLog_B.log.lck", "", now - limit);
  machine_.disk.Put(std::string(queue) + "/young.txt", "", now - limit + 1ms);
  machine_.disk.Make(Disk::Kind::folder, std::string(queue) + "/crMacLog_folder.log");
  machine_.disk.Make(Disk::Kind::fifo, std::string(queue) + "/fifo");
  machine_.disk.Find(ProcessWide().REPORTS_DIR + "/fifo")->created = now - limit - 1ms;
  RunIngester();
  EXPECT_EQ(machine_.disk.Names(queue),
            (std::vector<std::string>{"crMacLog_B.log.lck", "young.txt", "crMacLog_folder.log", "fifo"}));
  EXPECT_TRUE(machine_.posted.empty());
}

TEST_F(Queue, RunPostsNothingMoreAfterATimeOut) {
  for (const char* name : {"crMacLog_A.log", "crMacLog_B.log", "crMacLogbackup.log"}) {
    machine_.disk.Put(std::string(queue) + "/" + name, Event(name));
  }
  machine_.answers = {{.status = 500}, {.status = 0, .error = "time-out", .timesOut = true}};
  RunIngester();
  EXPECT_EQ(machine_.posted.size(), 2U);
  EXPECT_LE(machine_.Elapsed(), 61s);
  EXPECT_EQ(machine_.disk.Names(queue).size(), 3U);
}

TEST_F(Queue, FullQueueDeletesItsOldestEventsForANewOne) {
  machine_.disk.Put("/r.ips", TextReport());
  const auto path = [](std::size_t i) { return std::string(queue) + "/crMacLog_" + std::to_string(i) + ".log"; };
  for (const std::size_t before : {Ingester::mostEvents - 1, Ingester::mostEvents + 2}) {
    machine_.disk = Disk();
    machine_.log.clear();
    machine_.posted.clear();
    machine_.disk.Put("/r.ips", TextReport());
    for (std::size_t i = 0; i < before; ++i) {
      machine_.disk.Put(path(i), Event("old"), machine_.Now() - 24h + std::chrono::seconds((i + 7) % before));
    }
    machine_.disk.Put(std::string(queue) + "/other", "");
    machine_.answers = {{503}, {503}, {503}, {503}, {429}, {500}};
    RunIngester("/r.ips");
    EXPECT_EQ(machine_.disk.Names(queue).size(), Ingester::mostEvents + 1);
    EXPECT_EQ(machine_.posted.size(), 6U) << "three a run";
    EXPECT_EQ(machine_.posted.at(3).Event("source.name"), "Photo") << "the new one first";
    EXPECT_EQ(LoggedStart("the queue is full"), before > Ingester::mostEvents);
    for (std::size_t i = before - 8; i < before; ++i) {
      const bool isOldest = before > Ingester::mostEvents && i >= before - 7 && i < before - 4;
      EXPECT_EQ(machine_.disk.Has(path(i)), !isOldest) << i;
    }
  }
}

TEST_F(Queue, ServiceInTroubleEndsTheRunAfterThreeAnswersInARow) {
  for (int i = 0; i < 9; ++i) {
    machine_.disk.Put(std::string(queue) + "/crMacLog_" + std::to_string(i) + ".log", Event("Photo"));
  }
  machine_.answers = {{500}, {429}, {400}, {599}, {503}, {200}, {500}, {500}, {500}};
  RunIngester();
  EXPECT_EQ(machine_.posted.size(), 9U);
  machine_.answers = {{429}, {500}, {503}};
  RunIngester();
  EXPECT_EQ(machine_.posted.size(), 12U);
  EXPECT_EQ(machine_.disk.Names(queue).size(), 8U);
}

TEST_F(Queue, NewEventIsPostedThoughTheClockJumpedAhead) {
  machine_.disk.Put("/r.ips", TextReport());
  machine_.answers = {{500}};
  ScopedIngester ingester(std::make_unique<Ingester>("Photo", "1.2", "9.0", "session", "user"));
  ingester->start();
  EXPECT_TRUE(machine_.RunOneTask());
  ingester->submitReport("/r.ips", "0");
  const std::string path = ProcessWide().REPORTS_DIR + "/" + machine_.disk.Names(queue).at(0);
  machine_.disk.Find(path)->created = machine_.Now() - 32 * 24h;
  ingester->stop();
  EXPECT_EQ(machine_.posted.size(), 1U);
  RunIngester();
  EXPECT_EQ(machine_.posted.size(), 1U);
  EXPECT_TRUE(machine_.disk.Names(queue).empty()) << "its age counts once it was posted";
}

TEST_F(Queue, MissingFolderIsAnErrorLineForBothPasses) {
  RunIngester();
  EXPECT_TRUE(LoggedStart("failed to get contents of directory: " + ProcessWide().REPORTS_DIR + " with error: "));
  EXPECT_TRUE(machine_.Logged("stopped"));
}

TEST_F(Queue, UrlOfTheEnvironmentCountsWhenItIsSetAndAllowed) {
  const std::string builtIn = upload::ServiceUrl();
  const std::pair<const char*, std::string> cases[] = {
      {"", builtIn},
      {"http://ingest.example/", builtIn},
      {"https://other.example/ingest", "https://other.example/ingest"}};
  for (const auto& [url, expected] : cases) {
    machine_.environment["CRDAEMON_INGEST_URL"] = url;
    EXPECT_EQ(upload::ServiceUrl(), expected) << url;
  }
  ASSERT_EQ(machine_.log.size(), 1U);
  EXPECT_EQ(
      machine_.log[0].level + machine_.log[0].text,
      "ERRORCRDAEMON_INGEST_URL is ignored, neither https:// nor http:// to a loopback host: http://ingest.example/");
}

TEST(ServiceUrl, OnlySecureOrLoopback) {
  for (const char* url : {"https://ingest.example/ingest", "http://127.0.0.1:8080/ingest", "http://localhost/",
                          "http://[::1]:80/ingest"}) {
    EXPECT_TRUE(upload::IsAllowedUrl(url)) << url;
  }
  for (const char* url : {"", "http://ingest.example/", "http://127.0.0.1.example/", "http://localhost@ingest.example/",
                          "http://localhost:1@ingest.example/", "https:///ingest", "ftp://localhost/", "https://a b/",
                          "http://localhost\\@ingest.example/", "file:///etc/passwd"}) {
    EXPECT_FALSE(upload::IsAllowedUrl(url)) << url;
  }
}

}  // namespace
