#include "reliability/CrashScenes.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

#include "demo/Sandbox.h"

namespace reliability {
namespace {

namespace fs = std::filesystem;
using platform::Dictionary;
using platform::Value;

// Without digits: a name that holds the process id is that of the host's own signal report.
constexpr char reportName[] = "Photo-of-this-run.ips";
constexpr char rememberedKey[] = "lastCrash_Photo_4.2.0_b7";
constexpr std::size_t scenesAtOnce = 24;  // most of their time they sleep
constexpr char waiting[] = "clock_nanosleep";

// Stands where a program stood and starts it, under strace when the environment says so.
constexpr char wrapper[] = "#!/bin/sh\nexec $TRACE_%NAME \"%PROGRAM\" \"$@\"\n";

std::string Replaced(std::string text, std::string_view mark, std::string_view value) {
  const std::size_t at = text.find(mark);
  return at == std::string::npos ? text : text.replace(at, mark.size(), value);
}

int Count(const std::string& text, std::string_view piece) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(piece, at)) != std::string::npos; at += piece.size()) ++count;
  return count;
}

// The daemon looks for CRDaemon-http beside itself, so that both real programs move, each into a folder of its own.
void WrapPrograms(const demo::Sandbox& sandbox) {
  const fs::path bin = sandbox.Folder() / "bin";
  const auto wrap = [&](const fs::path& program, const fs::path& place, const std::string& variable) {
    sandbox.Put(place, Replaced(Replaced(wrapper, "%NAME", variable), "%PROGRAM", program.string()));
    fs::permissions(place, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read);
  };
  for (const char* folder : {"daemon", "poster"}) fs::create_directory(bin / folder);
  fs::rename(bin / "CRDaemon", bin / "daemon/CRDaemon");
  fs::rename(bin / "CRDaemon-http", bin / "poster/CRDaemon-http");
  wrap(bin / "daemon/CRDaemon", bin / "CRDaemon", "DAEMON");
  wrap(bin / "poster/CRDaemon-http", bin / "daemon/CRDaemon-http", "POSTER");
}

std::string Strace(const fs::path& output, std::string_view traced, const std::string& injected) {
  // Detached at execve: what a daemon starts is traced, if at all, by a strace of its own.
  std::string command = "/usr/bin/strace -A -f -b execve -qqq -y -s 0 -o " + output.string() +
                        " -e trace=" + std::string(traced) + "," + waiting;
  if (!injected.empty()) command += " -e inject=" + injected;
  return command;
}

// A line of strace's output begins with the id of the thread and the name of the call.
std::vector<std::string> CallsIn(const fs::path& trace) {
  std::map<std::string, int> counts;
  std::vector<std::string> calls;
  std::istringstream lines(demo::ContentOf(trace));
  for (std::string thread, rest; lines >> thread && std::getline(lines >> std::ws, rest);) {
    const std::string call = rest.substr(0, rest.find('('));
    const bool begins = call.size() < rest.size() && call.find_first_of(" <+") == std::string::npos;
    if (!begins || call == waiting) continue;
    const int count = ++counts[std::string(thread).append(" ").append(call)];
    calls.push_back(std::string(call).append(" ").append(std::to_string(count)));
  }
  return calls;
}

std::optional<Dictionary> ReadDictionary(const fs::path& path) {
  const auto root = platform::ParsePropertyList(demo::ContentOf(path));
  const auto* dictionary = root ? root->As<Dictionary>() : nullptr;
  return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

std::string TextIn(const Dictionary& dictionary, const std::string& key) {
  const Value* value = dictionary.Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

// Events go by their "event.user_guid" here: those planted have one of their own, too.
class Ledger {
 public:
  explicit Ledger(const std::vector<demo::Receipt>& receipts) {
    for (const demo::Receipt& receipt : receipts) {
      if (!receipt.problems.empty()) ++unsound;
      if (receipt.status < 400) ++deliveries_[receipt.Data("event.user_guid") + receipt.Data("event.error_code")];
    }
  }
  [[nodiscard]] int Deliveries(const std::string& event) const {
    const auto found = deliveries_.find(event);
    return found == deliveries_.end() ? 0 : found->second;
  }
  int unsound = 0;

 private:
  std::map<std::string, int> deliveries_;
};

class Scene {
 public:
  Scene(demo::Sandbox& sandbox, const Fault& fault, std::string_view traced, int number)
      : sandbox_(sandbox),
        fault_(fault),
        traced_(traced),
        name_("user" + std::to_string(number)),
        home_(sandbox.Folder() / name_),
        report_(home_ / "Library/Logs/DiagnosticReports" / reportName) {
    sandbox.Put(Preferences(), Replaced(foreignPreferences, "%", fault.neverSend ? "2" : "0"));
    foreign_ = ReadDictionary(Preferences()).value();
    for (int event = 0; event < fault.queued; ++event) {
      const std::string id = name_ + "-" + std::to_string(event);
      // Longer than one page, so that half an event would be seen to be one.
      const std::string code = "planted" + std::string(6000, 'x');
      sandbox.Put(Queue() / ("crMacLog_" + id + ".log"), Replaced(Replaced(eventFile, "%guid", id), "%code", code));
      planted_.insert(id + code);
    }
  }

  void Start(bool faulty) {
    const std::string trace = faulty ? "faulty" : "sound";
    daemonTrace_ = sandbox_.Folder() / (name_ + "-" + trace + ".daemon");
    sandbox_.environment["HOME"] = home_;
    sandbox_.environment["TRACE_DAEMON"] =
        Strace(daemonTrace_, faulty ? traced_ : waiting, faulty ? fault_.daemon : "");
    sandbox_.environment["TRACE_POSTER"] = faulty ? Strace(PosterTrace(), traced_, fault_.poster) : "";
    run_.emplace(sandbox_.StartHost({.elements = {{26, name_}, {28, "1"}}, .count = 31}));
  }

  void Crash() {
    AwaitWatch();
    sandbox_.Put(SessionRecord(), "SkylanceSessionId:  5A1B");
    run_->host.Say("crash");
    if (!run_->host.AwaitEnd()) throw std::runtime_error("the host does not crash");
    sandbox_.Put(report_, demo::SystemReport(run_->host.Id()));
    reportText_ = demo::ContentOf(report_);
  }

  void ExitNormally() {
    AwaitWatch();
    run_->host.Say("exit 0");
  }

  void AwaitEnd(Outcome& outcome, bool faulty) {
    const auto status = run_->daemon.AwaitEnd();
    if (!status) Harm(outcome, "the daemon does not end");
    if (faulty) outcome.daemonStatus = status.value_or(0);
    if (!faulty && status != 0)
      Harm(outcome, "the next daemon ended with status " + std::to_string(status.value_or(-1)));
    run_.reset();
  }

  // After the fault: nothing is gone that was not acknowledged.
  void Examine(const Ledger& ledger, Outcome& outcome) {
    const std::set<std::string> queued = ReadQueue(outcome);
    faultyTrace_ = daemonTrace_;
    outcome.daemonTrace = demo::ContentOf(faultyTrace_);
    outcome.daemonCalls = CallsIn(faultyTrace_);
    outcome.posterCalls = CallsIn(PosterTrace());
    for (const std::string& event : planted_) {
      if (!queued.contains(event) && ledger.Deliveries(event) == 0) Harm(outcome, "a queued event is gone");
    }
    if (queued.contains(Own())) outcome.event = Event::queued;
    if (ledger.Deliveries(Own()) > 0) outcome.event = Event::delivered;
    if (queued.size() > planted_.size() + 1) Harm(outcome, "something else is queued");
    outcome.remembered = ExaminePreferences(outcome) == reportName;
    ExamineReport(outcome);
  }

  // After a sound run: all is delivered, and again only what the fault left in doubt.
  void ExamineEnd(const Ledger& ledger, Outcome& outcome) {
    if (!ReadQueue(outcome).empty()) Harm(outcome, "an event is still queued");
    std::set<std::string> events = planted_;
    if (outcome.event != Event::none) events.insert(Own());
    int surplus = -static_cast<int>(events.size());
    for (const std::string& event : events) {
      if (ledger.Deliveries(event) == 0) Harm(outcome, "an event was never delivered");
      surplus += ledger.Deliveries(event);
    }
    if (surplus > InDoubt(outcome)) Harm(outcome, std::to_string(surplus) + " delivered again");
    if (outcome.event == Event::none && ledger.Deliveries(Own()) > 0) Harm(outcome, "delivered out of nowhere");
    static_cast<void>(ExaminePreferences(outcome));
    ExamineReport(outcome);
  }

 private:
  static constexpr char eventFile[] =
      "<plist "
      "version=\"1.0\"><dict><key>event.user_guid</key><string>%guid</string><key>event.error_code</key><string>%code"
      "</string></dict></plist>";
  static constexpr char foreignPreferences[] =
      "<plist version=\"1.0\"><dict><key>always_never_send</key><string>%</string><key>zz Ü</key><array><integer>-7"
      "</integer><true/><data>AAEC</data></array><key>lastCrash_Other_1_</key><string>Other.ips</string>"
      "<key>nested</key><dict><key>a</key><real>1.5</real></dict></dict></plist>";

  [[nodiscard]] fs::path Queue() const { return home_ / "Library/Logs/CrashReporter/Ingest"; }
  [[nodiscard]] fs::path Preferences() const { return home_ / "Library/Preferences/com.malvex.crashreporter.plist"; }
  [[nodiscard]] fs::path PosterTrace() const { return sandbox_.Folder() / (name_ + ".poster"); }
  [[nodiscard]] std::string Own() const { return name_ + "SIGSEGV"; }
  [[nodiscard]] fs::path SessionRecord() const {
    return home_ / "Library/Logs/Malvex" / ("glimmerData_" + std::to_string(run_->host.Id()) + ".sllog");
  }

  static void Harm(Outcome& outcome, const std::string& what) {
    if (outcome.harm.find(what) == std::string::npos) outcome.harm += (outcome.harm.empty() ? "" : "; ") + what;
  }

  // The reporter gets it, or the event holds what there was to know.
  void ExamineReport(Outcome& outcome) const {
    const bool mayGo = fault_.neverSend && outcome.event != Event::none;
    if (!(mayGo && !fs::exists(report_)) && demo::ContentOf(report_) != reportText_)
      Harm(outcome, "the report is gone");
  }

  // How many answers could not be acted on: one for each call that was made to fail and for each poster that was
  // killed. A killed daemon may have had an upload run from its start and one for its crash.
  [[nodiscard]] int InDoubt(const Outcome& outcome) const {
    const std::string daemon = demo::ContentOf(faultyTrace_);
    const std::string poster = demo::ContentOf(PosterTrace());
    return Count(poster, " killed by ") + Count(poster, "(INJECTED)") + Count(daemon, "(INJECTED)") +
           (outcome.daemonStatus != 0 ? 2 : 0);
  }

  // The daemon's first sleep: from then on it waits for its host. A daemon that was killed before waits for nothing.
  void AwaitWatch() {
    const fs::path commandLine = fs::path("/proc") / std::to_string(run_->daemon.Id()) / "cmdline";
    const bool watched = demo::Eventually([&] {
      // Until its host has gone, its status is the host's to ask for. A zombie has no command line.
      const bool gone = demo::ContentOf(commandLine).empty();
      return gone || demo::ContentOf(daemonTrace_).find(waiting) != std::string::npos;
    });
    if (!watched) throw std::runtime_error("the daemon does not watch: " + demo::ContentOf(daemonTrace_));
  }

  // The names of the whole events in the queue. What else there is must not look like one.
  std::set<std::string> ReadQueue(Outcome& outcome) const {
    std::set<std::string> events;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(Queue(), none)) {
      const std::string name = entry.path().filename();
      if (name.starts_with("crMacLog") && name.ends_with("log")) {
        const auto event = ReadDictionary(entry.path());
        if (!event) Harm(outcome, "half an event: " + name);
        if (event) events.insert(TextIn(*event, "event.user_guid") + TextIn(*event, "event.error_code"));
      } else if (!name.ends_with(".lck") && !name.ends_with(".tmp")) {
        Harm(outcome, "left in the queue: " + name);
      }
    }
    for (const auto& entry : fs::directory_iterator(report_.parent_path(), none)) {
      const std::string name = entry.path().filename();
      if (name != reportName && !name.ends_with(".tmp")) Harm(outcome, "left among the reports: " + name);
    }
    return events;
  }

  // Returns what is remembered.
  std::string ExaminePreferences(Outcome& outcome) const {
    const auto values = ReadDictionary(Preferences());
    if (!values) {
      Harm(outcome, "the preferences cannot be read");
      return {};
    }
    for (const auto& [key, value] : foreign_) {
      const Value* now = values->Find(key);
      if (now == nullptr || !(*now == value)) Harm(outcome, "a foreign preference is gone: " + key);
    }
    return TextIn(*values, rememberedKey);
  }

  demo::Sandbox& sandbox_;
  const Fault& fault_;
  std::string traced_;
  std::string name_;
  fs::path home_;
  fs::path report_;
  std::string reportText_;
  fs::path daemonTrace_;
  fs::path faultyTrace_;
  Dictionary foreign_;
  std::set<std::string> planted_;
  std::optional<demo::HostRun> run_;
};

// Whether a program of the sandbox still runs; its services do not count.
bool AnyRuns(const fs::path& folder) {
  for (const auto& process : fs::directory_iterator("/proc")) {
    const std::string command = demo::ContentOf(process.path() / "cmdline");
    for (const char* program : {"bin/daemon/", "bin/poster/", "bin/SampleHost"}) {
      if (command.starts_with((folder / program).string())) return true;
    }
  }
  return false;
}

}  // namespace

std::vector<Outcome> PlayScenes(const std::vector<Fault>& faults, std::string_view traced) {
  demo::Sandbox sandbox;
  WrapPrograms(sandbox);
  std::vector<Outcome> outcomes(faults.size());
  std::vector<Scene> scenes;
  scenes.reserve(faults.size());
  for (const Fault& fault : faults) scenes.emplace_back(sandbox, fault, traced, static_cast<int>(scenes.size()));
  const auto each = [&](const auto& act) {
    for (std::size_t i = 0; i < scenes.size(); ++i) act(scenes[i], outcomes[i]);
  };
  const auto examine = [&](const auto& act) {
    // A poster outlives its daemon by a moment, in which it may still deliver.
    const bool quiet = demo::Eventually([&] { return !AnyRuns(sandbox.Folder()); });
    const Ledger ledger(sandbox.Received());
    each([&](Scene& scene, Outcome& outcome) {
      if (!quiet) outcome.harm = "a program is left running; ";
      if (ledger.unsound > 0) outcome.harm = "an unsound request; ";
      act(scene, outcome, ledger);
    });
  };

  for (Scene& scene : scenes) scene.Start(true);
  for (Scene& scene : scenes) scene.Crash();
  each([](Scene& scene, Outcome& outcome) { scene.AwaitEnd(outcome, true); });
  examine([](Scene& scene, Outcome& outcome, const Ledger& ledger) { scene.Examine(ledger, outcome); });
  for (Scene& scene : scenes) scene.Start(false);
  for (Scene& scene : scenes) scene.ExitNormally();
  each([](Scene& scene, Outcome& outcome) { scene.AwaitEnd(outcome, false); });
  examine([](Scene& scene, Outcome& outcome, const Ledger& ledger) { scene.ExamineEnd(ledger, outcome); });
  return outcomes;
}

void PlayInTurns(const std::vector<Fault>& faults, std::string_view traced,
                 const std::function<void(const Fault&, const Outcome&)>& judge) {
  for (std::size_t from = 0; from < faults.size(); from += scenesAtOnce) {
    const auto first = faults.begin() + static_cast<std::ptrdiff_t>(from);
    const auto count = static_cast<std::ptrdiff_t>(std::min(scenesAtOnce, faults.size() - from));
    const std::vector<Fault> turn(first, first + count);
    const std::vector<Outcome> outcomes = PlayScenes(turn, traced);
    for (std::size_t i = 0; i < turn.size(); ++i) judge(turn[i], outcomes[i]);
  }
}

std::vector<Fault> EveryNth(const std::vector<Fault>& faults, std::size_t n) {
  std::vector<Fault> chosen;
  for (std::size_t i = 0; i < faults.size(); i += n) chosen.push_back(faults[i]);
  return chosen;
}

std::vector<std::string> StepsOf(const std::vector<std::string>& calls) {
  std::set<std::string> seen;
  std::vector<std::string> steps;
  for (const std::string& call : calls) {
    if (seen.insert(call).second) steps.push_back(call);
  }
  return steps;
}

std::string InjectionAt(std::string_view step, std::string_view what) {
  const std::size_t blank = step.find(' ');
  return std::string(step.substr(0, blank)) + ":" + std::string(what) + ":when=" + std::string(step.substr(blank + 1));
}

}  // namespace reliability
