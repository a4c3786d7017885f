#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/RunLoop.h"
#include "platform/Windows.h"
#include "tests/simulated/Disk.h"

class MyDaemon;

using namespace std::chrono_literals;

inline constexpr char simulatedHome[] = "/Users/anna";
inline constexpr std::int32_t simulatedHostId = 4711;

// A whole machine in one thread, the third body of everything under platform/ but the property lists. Its clock moves
// only while somebody sleeps or waits, from one scripted event to the next, and tasks that were submitted run at the
// same points: a daemon's hour takes milliseconds and ends the same way each time. There is one machine at a time; its
// constructor also starts the process-wide values anew and takes the log.
class SimulatedMachine {
 public:
  // 15 March 2024, 10:00 UTC, which is the local zone. Host 4711 "Photo" lives, its reporter is installed, the disk is
  // otherwise empty, the service answers 200.
  SimulatedMachine();
  SimulatedMachine(const SimulatedMachine&) = delete;
  SimulatedMachine& operator=(const SimulatedMachine&) = delete;
  ~SimulatedMachine();
  static SimulatedMachine& Current();

  // --- The script.
  class Moment {
   public:
    Moment(SimulatedMachine& machine, platform::Time time) : machine_(machine), time_(time) {}
    // Its end is announced at once, with the status.
    Moment HostDies(std::int64_t exitStatus);
    Moment HostDiesSilently();
    Moment EndIsAnnounced(std::int64_t exitStatus, const std::string& processId = "4711");
    // "~" is the user's home folder.
    Moment FileAppears(const std::string& path, const std::string& text);
    Moment Notify(const std::string& name, const std::map<std::string, std::string>& userInfo);
    Moment Logout();
    Moment ProcessAppears(const std::string& name);
    Moment ProcessEnds(const std::string& name);
    Moment Do(std::function<void()> action);

   private:
    SimulatedMachine& machine_;
    platform::Time time_;
  };
  // Since the machine's start.
  Moment At(std::chrono::milliseconds moment);

  // Runs daemon.initialize() with these arguments to its end. A run that would never end, or lasts longer than a day,
  // is a failure of the test; what the worker throws comes out.
  void Run(MyDaemon& daemon, const std::vector<std::string>& arguments);
  [[nodiscard]] std::chrono::milliseconds Elapsed() const;

  // --- What it is made of; a test may change all of it at any time.
  Disk disk;
  std::vector<std::string> processes = {"init", "Photo"};
  std::optional<std::vector<platform::Window>> windows;  // none: no window server
  std::map<std::string, std::string> environment;
  std::map<std::string, std::string> homes = {{"anna", simulatedHome}, {"root", "/root"}};
  bool isRoot = false;
  std::optional<std::string> consoleUser;
  std::string hostName = "Lab's Mac mini";
  bool reportsAreJson = true;

  // In the crash reporter's file.
  void SetPreference(const std::string& key, const platform::Value& value);

  struct Answer {
    int status = 200;
    std::string error = {};
    bool timesOut = false;                // after a minute
    std::function<void()> beforeIt = {};  // once the daemon did what it does meanwhile
  };
  std::deque<Answer> answers;  // to the next posts; 200 once they are used up

  // --- What became of it.
  struct LogLine {
    std::string level;
    std::string text;
  };
  std::vector<LogLine> log;
  // The whole run: log, what was started and posted, and what is on the disk. Names made at random are "GUID". A log
  // that is not told from its first line on begins with the wait for the host.
  [[nodiscard]] std::string Transcript(bool fromTheStart) const;
  [[nodiscard]] std::size_t CountLogged(std::string_view text) const;
  [[nodiscard]] bool Logged(std::string_view text) const { return CountLogged(text) > 0; }

  struct Post {
    std::string url;
    std::vector<std::string> headerLines;
    std::string body;
    // A member of the one event in the body: its text, or JSON for what is no text; "(absent)" without one.
    [[nodiscard]] std::string Event(std::string_view key) const;
  };
  std::vector<Post> posted;

  struct Started {
    std::string executable;
    std::vector<std::string> arguments;
  };
  std::vector<Started> started;
  std::vector<std::int32_t> broughtToFront;
  std::vector<std::chrono::milliseconds> wakes;  // when the run loop was woken
  std::size_t livenessTests = 0;
  std::size_t windowLists = 0;

  // --- For the bodies.
  [[nodiscard]] platform::Time Now() const { return now_; }
  void Sleep(std::chrono::milliseconds duration);
  bool WaitForInput();
  void Submit(std::function<void()> task) { tasks_.push_back(std::move(task)); }
  // False when none was left.
  bool RunOneTask();
  void Wake();
  void Announce(std::int64_t exitStatus, const std::string& processId);
  void Deliver(const std::string& name, const std::map<std::string, std::string>& userInfo);

  bool hostLives = true;
  bool hostWatched = false;
  bool workerReturned = false;
  std::vector<platform::TerminationHandler> terminationHandlers;
  std::vector<std::pair<std::optional<std::string>, platform::DistributedHandler>> distributedHandlers;

 private:
  void AdvanceTo(platform::Time time);
  bool RunNextEvent();

  platform::Time now_;
  std::multimap<platform::Time, std::function<void()>> script_;
  std::deque<std::function<void()>> tasks_;
  bool inputCame_ = false;
};

[[nodiscard]] std::vector<std::string> Pieces(std::string_view text, char separator = '|');

// The 31 elements with which the host starts the daemon, some of them replaced.
[[nodiscard]] std::vector<std::string> HostArguments(const std::map<std::size_t, std::string>& replaced = {});

// A system report in the JSON layout.
[[nodiscard]] std::string JsonReport(std::int32_t processId = simulatedHostId);
// A report in the text layout, as the host's own handler writes it.
[[nodiscard]] std::string TextReport(std::int32_t processId = simulatedHostId);

inline constexpr char userReports[] = "~/Library/Logs/DiagnosticReports/";
inline constexpr char preferencesFile[] = "~/Library/Preferences/com.malvex.crashreporter.plist";
