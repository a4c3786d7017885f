// reliability_folders [--short]: the real daemon among folders that hold what no program should open. In each of them a
// real host crashes; its report is found and posted, the rest is named in the log and left as it was.
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "demo/Sandbox.h"
#include "reliability/Figures.h"
#include "reliability/HostileEntries.h"
#include "support/Paths.h"

namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;
using reliability::Figures;
using reliability::HostileEntry;

using Entries = std::vector<HostileEntry>;

constexpr char delivered[] = "crash among hostile entries is delivered";
constexpr char untouched[] = "hostile entry is left as it was";
constexpr char named[] = "hostile entry is named in the log";
constexpr char fromMemory[] = "crash without a usable queue is delivered";
constexpr char reportName[] = "Photo-of-this-run.ips";
constexpr char queuedEvent[] =
    "<plist version=\"1.0\"><dict><key>source.name</key><string>Photo</string></dict></plist>";

// Holds when the daemon ended by itself and the crash of this host was posted once.
void EndAndCount(Figures& figures, const char* what, const std::string& name, const Sandbox& sandbox, HostRun& run,
                 std::size_t events = 1) {
  const bool ended = run.daemon.AwaitEnd() == 0;
  const auto receipts = sandbox.Received();
  const bool hasContent = !receipts.empty() && !receipts.back().Data("event.error_code").empty();
  figures.Count(what, name, ended && receipts.size() == events && hasContent);
  if (!ended || receipts.size() != events || !hasContent) std::cout << demo::ContentOf(run.logFile);
}

void CrashAndCount(Figures& figures, const char* what, const std::string& name, const Sandbox& sandbox, HostRun& run,
                   std::size_t events = 1) {
  run.host.Say("crash");
  static_cast<void>(run.host.AwaitEnd());
  sandbox.Put(sandbox.Reports() / reportName, demo::SystemReport(run.host.Id()));
  EndAndCount(figures, what, name, sandbox, run, events);
}

void CountUntouched(Figures& figures, const std::string& where, const Entries& entries) {
  for (const HostileEntry& entry : entries) figures.Count(untouched, entry.kind + where, entry.IsUntouched());
}

void CountNamed(Figures& figures, const std::string& where, const HostRun& run, const std::string& label,
                const Entries& entries) {
  for (const HostileEntry& entry : entries) {
    figures.Count(named, entry.kind + where, run.AwaitMessage(label + paths::Shown(entry.path.string())));
  }
}

// They are there first, and have been looked at when the good report comes.
void TryReportFolder(Figures& figures, const std::string& folder) {
  const std::string where = " in " + folder;
  Sandbox sandbox;
  HostRun run = sandbox.StartWatchedHost();
  const fs::path path = sandbox.Library() / "Logs" / folder;
  Entries entries = reliability::PlantAll(path, "Photo-", ".ips");
  run.host.Say("crash");
  static_cast<void>(run.host.AwaitEnd());
  CountNamed(figures, where, run, "refused to read report ", entries);
  sandbox.Put(path / reportName, demo::SystemReport(run.host.Id()));
  EndAndCount(figures, delivered, folder, sandbox, run);
  CountUntouched(figures, where, entries);
}

// The first look at the folder after the crash meets all of them at once.
void TryOnePass(Figures& figures) {
  Sandbox sandbox;
  HostRun run = sandbox.StartWatchedHost();
  const Entries entries = reliability::PlantAll(sandbox.Reports(), "Photo-", ".ips");
  sandbox.Put(sandbox.Reports() / reportName, demo::SystemReport(run.host.Id()));
  CrashAndCount(figures, delivered, "all in one pass", sandbox, run);
  figures.Count("good report is found in the pass that meets the hostile ones", "one pass",
                run.Logged("Crash report available") && !run.Logged("Crash log not found"));
  CountUntouched(figures, " in one pass", entries);
}

void TryFolderItself(Figures& figures, const std::string& kind) {
  Sandbox sandbox;
  const Entries entries = {reliability::Plant(kind, sandbox.Library() / "Logs/DiagnosticReportsForNewHardware")};
  HostRun run = sandbox.StartWatchedHost();
  CrashAndCount(figures, delivered, kind + " for a report folder", sandbox, run);
  CountNamed(figures, " for a report folder", run, "refused to read report ", entries);
  CountUntouched(figures, " for a report folder", entries);
}

// Events of an earlier daemon, one of them good; and one whose lock file cannot be made.
void TryQueue(Figures& figures) {
  Sandbox sandbox;
  sandbox.Put(sandbox.Queue() / "crMacLog_good.log", queuedEvent);
  sandbox.Put(sandbox.Queue() / "crMacLog_barred.log", queuedEvent);
  Entries entries = reliability::PlantAll(sandbox.Queue(), "crMacLog_", ".log");
  const HostileEntry lock = reliability::Plant("fifo", sandbox.Queue() / "crMacLog_barred.log.lck");
  HostRun run = sandbox.StartWatchedHost();
  CrashAndCount(figures, delivered, "queue", sandbox, run, 2);
  figures.Count(delivered, "good event in the queue", !fs::exists(sandbox.Queue() / "crMacLog_good.log"));
  CountUntouched(figures, " in the queue", entries);
  CountUntouched(figures, " for a lock", {lock});
  CountNamed(figures, " for a lock", run, "failed to create lock file: ", {lock});
  for (const HostileEntry& entry : entries) {
    // A folder is none of the queue's, the user's own link to nothing is as good as absent, and of the longest name
    // there can be no lock.
    const std::string label = entry.kind == "255 bytes" ? "failed to create lock file: " : "failed to read event: ";
    if (entry.kind != "folder" && entry.kind != "link to nothing")
      CountNamed(figures, " in the queue", run, label, {entry});
  }
}

void TryWithoutQueue(Figures& figures, const std::string& kind) {
  Sandbox sandbox;
  sandbox.Put(sandbox.Queue().parent_path() / "x", "");
  const Entries entries = {reliability::Plant(kind, sandbox.Queue())};
  if (kind == "folder") fs::permissions(sandbox.Queue(), fs::perms::owner_read | fs::perms::owner_exec);
  HostRun run = sandbox.StartWatchedHost();
  CrashAndCount(figures, fromMemory, kind + " for a queue", sandbox, run);
  figures.Count(named, kind + " for a queue", run.Logged("failed to write event: " + sandbox.Queue().string()));
  if (kind != "folder") CountUntouched(figures, " for a queue", entries);
}

void TryDumpsAndSessions(Figures& figures) {
  constexpr char begin[] = "5A8B6C1D-0f3e-4D2C-9B7E-1A2B3C4D5E0";
  Sandbox sandbox;
  HostRun run = sandbox.StartWatchedHost();
  const fs::path dump = sandbox.PendingDumps(run) / (std::string(begin) + "f.dmp");
  sandbox.Put(dump, "plain");
  Entries dumps;
  for (const std::string& kind : reliability::HostileKinds()) {
    if (kind == "6 GB") continue;  // a dump as good as any: only its path is passed on
    dumps.push_back(
        reliability::Plant(kind, sandbox.PendingDumps(run) / (begin + std::to_string(dumps.size()) + ".dmp.gz")));
  }
  const fs::path sessions = sandbox.Library() / "Logs/Malvex/GlimmerXT/SessionInfo";
  sandbox.Put(sessions / ("a_Photo_PhotoDesktop_S1_" + std::to_string(run.host.Id()) + "_Photo"), "");
  const Entries others = reliability::PlantAll(sessions, "a_Photo_", "_1_Photo");
  CrashAndCount(figures, delivered, "dumps and sessions", sandbox, run);
  figures.Count(delivered, "session", sandbox.Received().at(0).Data("event.session_guid") == "S1");
  const bool reported = demo::Eventually([&] { return sandbox.ReporterArguments().has_value(); });
  figures.Count(delivered, "dump", reported && sandbox.ReporterArguments()->at(19) == dump);
  CountUntouched(figures, " among dumps", dumps);
  CountUntouched(figures, " among sessions", others);
  CountNamed(figures, " among dumps", run, "refused as a dump: ", dumps);
}

// In the place of each small file that the daemon reads or writes.
void TrySmallFile(Figures& figures, const std::string& kind, const std::string& file) {
  const std::string where = kind + " for " + fs::path(file).filename().string();
  Sandbox sandbox;
  const fs::path path = sandbox.Library() / file;
  sandbox.Put(path, "");
  fs::remove(path);
  const Entries entries = {reliability::Plant(kind, path)};
  const std::string target = reliability::Fingerprint("/etc/passwd");
  HostRun run = sandbox.StartWatchedHost({.elements = {{28, "1"}}});
  CrashAndCount(figures, delivered, where, sandbox, run);
  figures.Count(untouched, "/etc/passwd behind " + where, reliability::Fingerprint("/etc/passwd") == target);
  // Where a new CrashModule.txt replaces the old one, a folder alone can withstand.
  const bool isReplaced = path.filename() == "CrashModule.txt" && kind != "folder";
  if (!isReplaced) CountUntouched(figures, " for " + path.filename().string(), entries);
  if (path.extension() == ".plist") CountNamed(figures, where, run, "preferences are left alone: ", entries);
}

void TryAll(Figures& figures, bool isShort) {
  TryReportFolder(figures, "DiagnosticReports");
  TryReportFolder(figures, "DiagnosticReportsForNewHardware");
  TryOnePass(figures);
  TryQueue(figures);
  TryDumpsAndSessions(figures);
  const auto kinds = isShort ? std::vector<std::string>{"fifo", "link to zeros"} : reliability::HostileKinds();
  for (const std::string& kind : kinds) {
    TryWithoutQueue(figures, kind);
    if (kind != "folder") TryFolderItself(figures, kind);
    if (kind == "link to nothing") continue;  // of the user's own: as good as absent
    for (const char* file : {"Preferences/com.malvex.crashreporter.plist", "Preferences/Photo/4.2/CrashModule.txt",
                             "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt"}) {
      TrySmallFile(figures, kind, file);
    }
  }
}

}  // namespace

int main(int count, char* arguments[]) try {
  Figures figures;
  TryAll(figures, reliability::IsShort(count, arguments));
  return figures.Print();
} catch (const std::exception& failure) {
  std::cerr << "reliability_folders: " << failure.what() << '\n';
  return 1;
}
