#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace reliability {

// What is done to the programs of one scene, in the words of strace's "-e inject=", and only in its first run.
struct Fault {
  std::string name;
  std::string daemon = {};  // to CRDaemon; empty: nothing
  std::string poster = {};  // to each CRDaemon-http that it starts
  int queued = 0;           // events that are in the queue when the daemon starts
  bool neverSend = false;   // what the user chose: no reporter is started, and the report goes once it is queued
};

// What became of the event of the crash by the time the daemon was gone.
enum class Event { none, queued, delivered };

struct Outcome {
  int daemonStatus = 0;  // of the first run, as of waitpid
  Event event = Event::none;
  bool remembered = false;                    // the crash, so that it is never offered again
  std::vector<std::string> daemonCalls = {};  // "call N", in order: a thread's Nth call of that name
  std::vector<std::string> posterCalls = {};
  std::string daemonTrace = {};  // as strace wrote it
  std::string harm = {};         // what was lost, or found that should not be; empty: nothing
};

// Plays each scene, all of them side by side, each for a user of its own with a home of its own: a real host crashes
// under the eyes of a real daemon, which suffers the fault and ends; then a second host and daemon live and end
// undisturbed. What the programs leave is examined after each of the two. `traced` are the calls that are counted.
[[nodiscard]] std::vector<Outcome> PlayScenes(const std::vector<Fault>& faults, std::string_view traced);

// The same for any number of scenes, some at a time; `judge` is told of each.
void PlayInTurns(const std::vector<Fault>& faults, std::string_view traced,
                 const std::function<void(const Fault&, const Outcome&)>& judge);

// Every nth of them, the first included.
[[nodiscard]] std::vector<Fault> EveryNth(const std::vector<Fault>& faults, std::size_t n);

// The steps at which a fault can strike in a run that made these calls: each name with each of its numbers, once.
[[nodiscard]] std::vector<std::string> StepsOf(const std::vector<std::string>& calls);

// "fsync 3" as strace puts it: "fsync:<what>:when=3".
[[nodiscard]] std::string InjectionAt(std::string_view step, std::string_view what);

}  // namespace reliability
