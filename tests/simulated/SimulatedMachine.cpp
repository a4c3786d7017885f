#include "tests/simulated/SimulatedMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <stdexcept>
#include <utility>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Preferences.h"
#include "support/CRLogger.h"
#include "support/FixedNames.h"
#include "support/Json.h"
#include "support/Text.h"

namespace {

using namespace std::chrono;

constexpr platform::Time startOfTime = sys_days(year(2024) / March / 15) + 10h;
constexpr auto longestRun = hours(24);

struct RunWithoutEnd : std::runtime_error {
  using std::runtime_error::runtime_error;
};

SimulatedMachine* current = nullptr;

class LogCatcher : public CRLogger::Logger {
 public:
  LogCatcher() : Logger(nullptr) {}
  void Log(const std::string& level, const std::string& value, const std::string& /*detail*/) override {
    SimulatedMachine::Current().log.push_back({level, value});
  }
};

}  // namespace

SimulatedMachine::SimulatedMachine() : now_(startOfTime) {
  if (current != nullptr) throw std::logic_error("two machines at a time");
  current = this;
  setenv("TZ", "UTC", 1);
  tzset();
  disk.Put("/Applications/Reporter", "program");
  static LogCatcher catcher;
  CRLogger::Logger::pLogger = &catcher;
  ProcessWide() = InitialProcessValues();
}

SimulatedMachine::~SimulatedMachine() {
  CRLogger::Logger::pLogger = nullptr;
  current = nullptr;
}

SimulatedMachine& SimulatedMachine::Current() {
  if (current == nullptr) throw std::logic_error("no machine");
  return *current;
}

SimulatedMachine::Moment SimulatedMachine::At(milliseconds moment) { return {*this, startOfTime + moment}; }

using Moment = SimulatedMachine::Moment;

Moment Moment::Do(std::function<void()> action) {
  machine_.script_.emplace(time_, std::move(action));
  return *this;
}
Moment Moment::HostDies(std::int64_t exitStatus) {
  return Do([=, &machine = machine_] {
    machine.hostLives = false;
    machine.Announce(exitStatus, "4711");
  });
}
Moment Moment::HostDiesSilently() {
  return Do([&machine = machine_] { machine.hostLives = false; });
}
Moment Moment::EndIsAnnounced(std::int64_t exitStatus, const std::string& processId) {
  return Do([=, &machine = machine_] { machine.Announce(exitStatus, processId); });
}
Moment Moment::FileAppears(const std::string& path, const std::string& text) {
  return Do([=, &machine = machine_] { machine.disk.Put(path, text); });
}
Moment Moment::Notify(const std::string& name, const std::map<std::string, std::string>& userInfo) {
  return Do([=, &machine = machine_] { machine.Deliver(name, userInfo); });
}
Moment Moment::Logout() { return Notify(names::logoutContinued, {}); }
Moment Moment::ProcessAppears(const std::string& name) {
  return Do([=, &machine = machine_] { machine.processes.push_back(name); });
}
Moment Moment::ProcessEnds(const std::string& name) {
  return Do([=, &machine = machine_] { std::erase(machine.processes, name); });
}
void SimulatedMachine::Run(MyDaemon& daemon, const std::vector<std::string>& arguments) {
  ProcessWide().arguments = arguments;
  try {
    daemon.initialize();
  } catch (const RunWithoutEnd& reason) {
    ADD_FAILURE() << reason.what() << " at " << duration<double>(now_ - startOfTime).count() << " s";
  }
}

milliseconds SimulatedMachine::Elapsed() const { return duration_cast<milliseconds>(now_ - startOfTime); }

void SimulatedMachine::SetPreference(const std::string& key, const platform::Value& value) {
  auto values = platform::PersistentDomain(names::preferencesDomain).value_or(platform::Dictionary());
  values.Set(key, value);
  if (!platform::SetPersistentDomain(names::preferencesDomain, values)) throw std::logic_error("preferences");
}

std::string SimulatedMachine::Transcript(bool fromTheStart) const {
  std::string text;
  const auto add = [&text](const std::string& line) { text += line + "\n"; };
  auto first = log.begin();
  if (!fromTheStart) first = std::ranges::find(log, "runOnce", &LogLine::text);
  for (; first != log.end(); ++first) add(first->level.substr(0, 1) + " " + first->text);
  for (const auto& program : started) {
    add("started: " + program.executable);
    for (const auto& argument : program.arguments) add("  [" + argument + "]");
  }
  for (const auto id : broughtToFront) add("to front: " + std::to_string(id));
  for (const auto& post : posted) add("posted: " + post.body);
  for (const auto time : wakes) add("run loop woken: " + std::to_string(time.count()) + " ms");
  add("window lists: " + std::to_string(windowLists));
  for (const auto& path : disk.Paths()) {
    const bool isTold = path.ends_with("Module.txt") || path.ends_with(".plist");
    add("file: " + path + (isTold ? "\n" + disk.Text(path) : ""));
  }
  static const std::regex guid("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}");
  return std::regex_replace(text, guid, "GUID");
}

void SimulatedMachine::Wake() {
  inputCame_ = true;
  wakes.push_back(Elapsed());
}

std::size_t SimulatedMachine::CountLogged(std::string_view text) const {
  return static_cast<std::size_t>(std::ranges::count(log, text, &LogLine::text));
}

std::string SimulatedMachine::Post::Event(std::string_view key) const {
  const auto envelope = std::get<platform::Dictionary>(json::Parse(body, {"events"}));
  const auto& events = *envelope.Find("events")->As<platform::Array>();
  const auto* event = events.at(0).As<platform::Dictionary>()->Find("data")->As<platform::Dictionary>();
  const platform::Value* value = event->Find(key);
  if (value == nullptr) return "(absent)";
  if (const auto* text = value->As<std::string>()) return *text;
  return std::get<std::string>(json::Write(*value));
}

bool SimulatedMachine::RunNextEvent() {
  auto event = script_.extract(script_.begin());
  AdvanceTo(event.key());
  event.mapped()();
  return true;
}

void SimulatedMachine::AdvanceTo(platform::Time time) {
  now_ = std::max(now_, time);
  if (now_ > startOfTime + longestRun) throw RunWithoutEnd("a run of more than a day");
}

bool SimulatedMachine::RunOneTask() {
  if (tasks_.empty()) return false;
  const auto task = std::move(tasks_.front());
  tasks_.pop_front();
  task();
  return true;
}

void SimulatedMachine::Sleep(milliseconds duration) {
  const platform::Time until = now_ + duration;
  while (RunOneTask() || (!script_.empty() && script_.begin()->first <= until && RunNextEvent())) {
  }
  AdvanceTo(until);
}

bool SimulatedMachine::WaitForInput() {
  while (!std::exchange(inputCame_, false)) {
    if (RunOneTask()) continue;
    if (workerReturned && (!hostWatched || !hostLives)) return false;
    if (script_.empty()) throw RunWithoutEnd("nothing left to wait for");
    RunNextEvent();
  }
  return true;
}

void SimulatedMachine::Announce(std::int64_t exitStatus, const std::string& processId) {
  inputCame_ = true;
  for (const auto& handler : terminationHandlers) handler(processId, exitStatus);
}

void SimulatedMachine::Deliver(const std::string& name, const std::map<std::string, std::string>& userInfo) {
  inputCame_ = true;
  for (const auto& [wanted, handler] : distributedHandlers) {
    if (!wanted || *wanted == name) handler(name, userInfo);
  }
}

std::vector<std::string> Pieces(std::string_view text, char separator) {
  const auto pieces = text::Split(text, separator);
  return {pieces.begin(), pieces.end()};
}

std::vector<std::string> HostArguments(const std::map<std::size_t, std::string>& replaced) {
  constexpr std::string_view elements =
      "/opt/crdaemon/CRDaemon|4711|Photo|7.1|/Applications/Photo.icns|/Applications/Reporter|0|||||Photo has "
      "quit|7.1.0|1042|Imaging|Photo|Photo!|0|1.0|1|dialog-options|anna@example.org|3.2|1|30|0|USER-GUID|X86-64|0|"
      "trial|1";
  auto arguments = Pieces(elements);
  for (const auto& [element, text] : replaced) arguments.at(element) = text;
  return arguments;
}

std::string JsonReport(std::int32_t processId) {
  return R"json({"app_name":"Photo","os_version":"macOS 14.2 (23C64)"})json"
         "\n{\n  \"pid\" : " +
         std::to_string(processId) + R"(,
  "captureTime" : "2024-03-15 10:00:03.0000 +0000",
  "procLaunch" : "2024-03-15 09:59:53.0000 +0000",
  "exception" : {"type" : "EXC_BAD_ACCESS", "signal" : "SIGSEGV"}
})";
}

std::string TextReport(std::int32_t processId) {
  return "Process:         Photo [" + std::to_string(processId) + "]\nSignal Number: 11\n";
}
