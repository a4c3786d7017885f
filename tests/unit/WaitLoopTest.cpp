#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Preferences.h"
#include "support/FixedNames.h"
#include "tests/simulated/SimulatedMachine.h"
#include "tests/unit/Transcripts.h"

namespace {

using Step = std::function<void(SimulatedMachine&)>;
using Moment = std::chrono::milliseconds;

const std::string systemReport = std::string(userReports) + "Photo-1.ips";
const std::string signalReport = std::string(userReports) + "Photo_2024-03-15_4711_Labs-Mac-mini.ips";
const std::string hangReport = "/Library/Logs/DiagnosticReports/Photo_1.hang";
constexpr char dataFile[] = "~/Library/Logs/Malvex/data_4711.txt";
const std::string dumpName = "0123abcd-4567-89AB-cdef-0123456789ab.dmp";
const std::string nothing;

// Lines that tell the ends apart.
constexpr char announced[] = "Got appTerminatedNormally notification in daemon";
constexpr char available[] = "Crash report available";
constexpr char noPreferences[] = "Not able to access CR preference";
constexpr char noSignalReport[] = "Signal report is not created, CR dialog will not appear";
constexpr char notFound[] = "Crash log not found";
constexpr char reporterFailed[] = "Malvex crash reporter launch failed";
constexpr char searching[] = "Searching for Crash logs";
constexpr char waitsForDialog[] = "Apple Report not available, Wait for Apple crash dialog";
constexpr char overridden[] =
    "MalvexCrashReporterSendWithoutPrompt is overriding always_never_send set in CR preference";
constexpr char notLaunched[] =
    "Malvex Crash Reporter App will not be launched as either a. user is throttled Or b. always never send is set  to "
    "'2' in preference Or c. MalvexCrashReporterSendWithoutPrompt Or d. Signal dialog is disabled";

Step Dies(Moment at, std::int64_t status) {
  return [=](auto& machine) { machine.At(at).HostDies(status); };
}
Step Appears(Moment at, const std::string& path) {
  return [=](auto& machine) { machine.At(at).FileAppears(path, JsonReport()); };
}
Step Posts(Moment at, const std::string& name) {
  return [=](auto& machine) { machine.At(at).Notify(name, {{"pid", "4711"}}); };
}
Step AnnouncedAt(Moment at) {
  return [=](auto& machine) { machine.At(at).EndIsAnnounced(SIGSEGV); };
}
void DiesSilently(SimulatedMachine& machine) { machine.At(3s).HostDiesSilently(); }
void IsThere(SimulatedMachine& machine) { machine.disk.Put(systemReport, JsonReport()); }
void RemembersAnother(SimulatedMachine& machine) { machine.SetPreference("lastCrash_Photo_7.1.0_1042", "Photo-0.ips"); }
// The system still protects its report.
void AppearsLocked(SimulatedMachine& machine) {
  machine.At(3s).FileAppears(systemReport, JsonReport()).Do([&machine] {
    machine.disk.Find(simulatedHome + systemReport.substr(1))->immutable = true;
  });
}
void ReportCrashRuns(SimulatedMachine& machine) {
  machine.At(3s).ProcessAppears("ReportCrash");
  machine.At(5s).ProcessEnds("ReportCrash");
}
// A window that is there from one moment to another, with the process it belongs to.
Step Shows(const std::string& owner, Moment from, Moment until = 24h) {
  return [=](auto& machine) {
    machine.At(from).ProcessAppears(owner).Do([=, &machine] { machine.windows = {{owner, "", "77"}}; });
    machine.At(until).ProcessEnds(owner).Do([&machine] { machine.windows = std::vector<platform::Window>(); });
  };
}
// The analytics system's crash processor is there to be started.
void HasCrashProcessor(SimulatedMachine& machine) {
  const platform::Value path(platform::Dictionary{{"Photo", "/opt/glimmer/Registered"}});
  ASSERT_TRUE(platform::SetPersistentDomain("com.malvex.glimmerxt", {{"CRProcessor", path}}));
  machine.disk.Put("/opt/glimmer" + std::string(names::crashProcessor));
}
Step DumpAppears(Moment at) {
  return [=](auto& machine) {
    machine.At(at).FileAppears("~/Library/Logs/Malvex/CrashPadDumps/Photo/7.1.0/1042/4711/pending/" + dumpName, "");
  };
}
void HasSession(SimulatedMachine& machine) {
  machine.disk.Put("~/Library/Logs/Malvex/glimmerData_4711.sllog", "SkylanceSessionId:  S7");
}
void BrowserReport(SimulatedMachine& machine) {
  machine.At(3s).FileAppears(systemReport, JsonReport() + "Binary Images:\nPhoto.so\n");
}
void NeverSend(SimulatedMachine& machine) { machine.SetPreference("always_never_send", "2"); }
void KeepNoPreferences(SimulatedMachine& machine) { machine.disk.Fail(preferencesFile, std::errc::permission_denied); }

struct End {
  const char* name;
  std::map<std::size_t, std::string> replaced;  // arguments
  std::vector<Step> script;
  Moment elapsed;
  std::string outcome;  // the kind of the event posted, and whether the reporter was started
  const char* logged;
};

}  // namespace

TEST(WaitLoop, EveryEnd) {
  const auto crash = Dies(3s, SIGSEGV), killed = Dies(3s, SIGKILL), terminated = Dies(3s, SIGTERM);
  const auto report = Appears(4s, systemReport), ownReport = Appears(3s, signalReport), hang = Appears(3s, hangReport);
  const End ends[] = {
      // Nothing is reported.
      {"normal exit", {}, {Dies(3s, 0)}, 3s, nothing, "Normal Exit"},
      {"log-out, host alive", {}, {Posts(2500ms, names::logoutContinued)}, 3s, nothing, "stopped"},
      {"log-out, deciding", {}, {crash, Posts(4500ms, names::logoutContinued)}, 5s, nothing, notFound},
      {"log-out, host dies at once", {}, {Posts(2500ms, names::logoutContinued), crash}, 3s, nothing, "stopped"},
      {"announced, deciding",
       {},
       {terminated, ownReport, Posts(4500ms, names::terminatedNormally)},
       5s,
       nothing,
       announced},
      {"announced", {}, {Posts(2500ms, names::terminatedNormally), HasSession}, 3s, nothing, announced},
      {"no report in time", {{24, "3"}}, {crash}, 5s, nothing, searching},
      {"no time", {{24, "none"}}, {crash}, 3s, nothing, searching},
      {"no signal report", {}, {terminated}, 9s, nothing, noSignalReport},
      {"delivered alone",
       {},
       {HasCrashProcessor, Posts(2s, names::exceptionDelivered), crash},
       3s,
       nothing,
       "Exception delivered"},
      {"old report", {{24, "2"}}, {IsThere, crash}, 4s, nothing, searching},
      // Reported.
      {"system report", {}, {crash, report}, 4s, "crash, reporter", "Parent app exit code:11"},
      {"report since the last run", {}, {RemembersAnother, IsThere, crash}, 3s, "crash, reporter", available},
      {"status 0, not of launchd", {{23, "0"}}, {Dies(3s, 0), report}, 4s, "crash, reporter", notFound},
      {"signal, waits for hang", {}, {terminated, ownReport}, 9s, "signal, reporter", "CR handled signal received"},
      {"hang", {{23, "0"}}, {killed, hang}, 9s, "hang, reporter", available},
      {"signal and hang", {{23, "0"}}, {hang, ownReport, killed}, 3s, "others, reporter", available},
      {"module logged once", {{24, "9"}, {28, "Y"}}, {AppearsLocked, crash}, 42s, "crash, reporter", waitsForDialog},
      {"module of a handled report", {{24, "1"}, {28, "Y"}}, {IsThere, crash}, 3s, nothing, searching},
      {"module of a signal", {{28, "Y"}}, {terminated, ownReport}, 9s, "signal, reporter", available},
      {"report of the system folder",
       {},
       {HasSession, crash, Appears(5s, "/Library/Logs/DiagnosticReports/Photo-1.ips")},
       5s,
       "crash, reporter",
       available},
      {"announced late", {{24, "1"}}, {DiesSilently, AnnouncedAt(5s)}, 5s, nothing, searching},
      {"announced too late", {{24, "1"}}, {DiesSilently, AnnouncedAt(9s)}, 8s, nothing, "exitStatus -1"},
      {"session found late",
       {},
       {Appears(2s, "~/Library/Logs/Malvex/GlimmerXT/SessionInfo/a_Imaging_Photo_S1_4711_Photo"), crash, report},
       4s,
       "crash, reporter",
       "setSessionGuid:S1"},
      {"session and dump",
       {},
       {HasSession, DumpAppears(2s), crash, report},
       4s,
       "crash, reporter",
       "Setting Skylance Session ID: SkylanceSessionId:  S7"},
      {"browser",
       {{7, "Browser"}, {8, "9.1"}, {9, "77"}, {10, "Photo.so"}},
       {crash, BrowserReport},
       3s,
       "crash, reporter",
       available},
      {"browser, other module", {{9, "77"}, {10, "Other.so"}}, {crash, BrowserReport}, 3s, "crash", available},
      {"browser, no such reporter",
       {{9, "77"}, {10, "Photo.so"}, {5, "/None"}},
       {crash, BrowserReport},
       3s,
       "crash",
       available},
      {"own report, unannounced", {}, {DiesSilently, ownReport}, 14s, "signal, reporter", available},
      {"unannounced", {}, {DiesSilently, report}, 8s, "crash, reporter", "Parent app exit code:-1"},
      {"delivered", {}, {Posts(2s, names::exceptionDelivered), AppearsLocked, crash}, 3s, "crash, reporter", available},
      {"delivered, and a dump",
       {},
       {HasCrashProcessor, DumpAppears(2s), Posts(2s, names::exceptionDelivered), crash},
       3s,
       ", processor",
       "Exception delivered"},
      {"processor", {}, {HasCrashProcessor, crash, report}, 4s, "crash, processor, reporter", available},
      {"locked, no dialog", {}, {AppearsLocked, crash}, 63s, "crash, reporter", waitsForDialog},
      {"fewer processes",
       {},
       {AppearsLocked, ReportCrashRuns, Shows("UserNotificationCenter", 3200ms), crash},
       5500ms,
       "crash, reporter",
       "Apple Crash Dialog Window ID: 77"},
      {"problem reporter died",
       {},
       {AppearsLocked, Shows("Problem Reporter", 3200ms, 7200ms), crash},
       7500ms,
       "crash, reporter",
       "Apple Crash Dialog Window ID: 77"},
      {"no preferences", {}, {KeepNoPreferences, crash, report}, 4s, "crash, reporter", noPreferences},
      {"never, overridden", {{6, "1"}}, {NeverSend, crash, report}, 4s, "crash, reporter", overridden},
      // Queued, but no reporter.
      {"never", {}, {NeverSend, crash, report}, 4s, "crash", notLaunched},
      {"throttled", {{25, "1"}, {6, "1"}}, {crash, report}, 4s, "crash", notLaunched},
      {"no dialog for signals", {{19, "0"}}, {terminated, ownReport}, 9s, "signal", notLaunched},
      {"no such reporter", {{5, "/None"}}, {crash, report}, 4s, "crash", reporterFailed},
  };
  for (const End& end : ends) {
    SCOPED_TRACE(end.name);
    SimulatedMachine machine;
    machine.disk.Put(dataFile);
    machine.disk.Put("~/Library/Logs/Malvex/CrashPadDumps/Photo/7.1.0/1042/4711/pending/other", "");
    for (const auto& step : end.script) step(machine);
    MyDaemon daemon;
    machine.Run(daemon, HostArguments(end.replaced));
    EXPECT_EQ(machine.Elapsed(), end.elapsed);
    std::string outcome = nothing;
    for (const auto& post : machine.posted)
      outcome += post.Event("event.value").substr(std::string("abnormal:").size());
    for (const auto& started : machine.started) outcome += started.arguments.size() == 7 ? ", processor" : ", reporter";
    EXPECT_EQ(outcome, end.outcome);
    EXPECT_TRUE(machine.Logged(end.logged));
    EXPECT_TRUE(daemon.endRunLoop);
    ExpectTranscript(end.name, machine.Transcript(end.name == std::string("normal exit")));
  }
}

TEST(WaitLoop, TheStartClearsUpWhatEarlierRunsLeft) {
  SimulatedMachine machine;
  const auto old = machine.Now() - 13min;
  const std::string preferences = "~/Library/Preferences/";
  const std::string folders[] = {userReports, "~/Library/Logs/DiagnosticReportsForNewHardware/",
                                 "Library/Logs/DiagnosticReports/"};
  for (const std::string& folder : folders) {
    machine.disk.Put(folder + "Photo_old.ips", "", old);
    machine.disk.Put(folder + "Photo_young.ips", "", machine.Now() - 11min);
  }
  for (const char* name :
       {".Photo_2024-03-15_12_Labs-Mac-mini.ips.new", ".Video_2024-03-15_12_x.ips.new", ".Photo_1.ips"})
    machine.disk.Put(std::string(userReports) + name, "", old);
  machine.disk.Put(std::string(userReports) + ".Photo_2024-03-15_13_Labs-Mac-mini.ips.new", "");
  for (const std::string& folder : {std::string(userReports), preferences, preferences + "Photo/7.1/"})
    machine.disk.Put(folder + ".new7", "", machine.Now() - 31 * 24h);
  machine.At(1500ms).HostDies(0);
  MyDaemon daemon;
  machine.Run(daemon, HostArguments());
  for (const std::string& folder : folders) {
    EXPECT_FALSE(machine.disk.Has(folder + "Photo_old.ips")) << folder;
    EXPECT_TRUE(machine.disk.Has(folder + "Photo_young.ips")) << folder;
  }
  EXPECT_EQ(machine.disk.Names(userReports),
            (std::vector<std::string>{"Photo_young.ips", ".Video_2024-03-15_12_x.ips.new", ".Photo_1.ips",
                                      ".Photo_2024-03-15_13_Labs-Mac-mini.ips.new"}));
  for (const std::string& folder : {preferences, preferences + "Photo/7.1/"})
    EXPECT_FALSE(machine.disk.Has(folder + ".new7")) << folder;
}

TEST(WaitLoop, WhatIsNoProcessIdIsAHostThatIsGone) {
  for (const std::string& id : {std::string("1e3"), std::string(" 4711"), std::string("+4711"), std::string("4711\n"),
                                std::string("-1"), std::string(), std::string(std::size_t{128} << 10U, '9')}) {
    SimulatedMachine machine;
    machine.At(20s).HostDies(0);
    MyDaemon daemon;
    machine.Run(daemon, HostArguments({{1, id}, {24, "0"}}));
    EXPECT_TRUE(machine.Logged("exitStatus -1")) << id;
    EXPECT_EQ(machine.livenessTests, 1U) << id;
  }
}

TEST(WaitLoop, ABadArgumentListEndsWithTheHost) {
  for (const std::size_t size : {0U, 5U, 6U, 23U}) {
    SimulatedMachine machine;
    machine.At(3s).HostDies(SIGSEGV);
    auto arguments = HostArguments();
    arguments.resize(size);
    MyDaemon daemon;
    machine.Run(daemon, arguments);
    EXPECT_EQ(machine.Elapsed(), size < 6 ? 0s : 3s) << size;
    EXPECT_EQ(machine.CountLogged("Insufficient number of arguments passed to CRDaemon"), size < 6 ? 2U : 1U) << size;
    EXPECT_EQ(daemon.processId.has_value(), size >= 6) << size;
    EXPECT_FALSE(daemon.endRunLoop) << size;
  }
  for (std::size_t size = 24; size <= 30; ++size) {
    SimulatedMachine machine;
    MyDaemon daemon;
    auto arguments = HostArguments();
    arguments.resize(size);
    EXPECT_THROW(machine.Run(daemon, arguments), std::out_of_range) << size;
  }
}

TEST(WaitLoop, NoticesAboutOthersChangeNothing) {
  SimulatedMachine machine;
  machine.At(2s).Notify(names::terminatedNormally, {{"pid", "47"}});
  machine.At(2s).Notify(names::exceptionDelivered, {}).Notify("com.apple.somethingElse", {{"pid", "4711"}});
  machine.At(3s).HostDiesSilently().EndIsAnnounced(SIGSEGV, "47");
  machine.At(4s).EndIsAnnounced(0);
  MyDaemon daemon;
  machine.Run(daemon, HostArguments());
  EXPECT_EQ(machine.Elapsed(), 4s);
  EXPECT_EQ(machine.CountLogged("Got appTerminatedNormally notification in daemon"), 1U);
  for (const auto* line : {"Exception delivered", searching}) EXPECT_FALSE(machine.Logged(line));
  EXPECT_TRUE(machine.Logged("Normal Exit"));
}

TEST(WaitLoop, RootWithoutAConsoleUserFindsAndMakesNothing) {
  SimulatedMachine machine;
  machine.isRoot = true;
  machine.At(3s).HostDies(SIGSEGV);
  ProcessWide() = InitialProcessValues();
  MyDaemon daemon;
  machine.Run(daemon, HostArguments({{24, "3"}}));
  EXPECT_EQ(ProcessWide().UserLibrary, "~<none>/Library");
  EXPECT_EQ(machine.Elapsed(), 5s);
  EXPECT_FALSE(machine.disk.Has("/~<none>"));
}
