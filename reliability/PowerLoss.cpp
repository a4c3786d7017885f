// Power loss at every step of a crash. A real daemon's own calls are recorded and replayed onto a model of a disk that
// keeps what it must and nothing else: of a file what was there at its last fsync, of a name what it stood for at the
// last fsync of its folder. After each call, each state that the power loss may leave is looked at.
//   reliability_power_loss [--short]
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "reliability/CrashScenes.h"
#include "reliability/Figures.h"

namespace {

constexpr char calls[] =
    "openat,write,pwrite64,ftruncate,fsync,fdatasync,rename,renameat,renameat2,linkat,unlink,unlinkat,clone3,vfork,"
    "clone";
constexpr int eventsInQueue = 4;

// One call as strace prints it, with the paths behind the descriptors.
struct Call {
  std::string name;
  std::string arguments;
  long result = -1;
  std::string returned = {};  // the path behind a returned descriptor, and what else follows
};

// A call that another thread interrupts is printed in two pieces.
std::vector<Call> ReadTrace(const std::string& trace) {
  static const std::regex resumed(R"(<\.\.\. \w+ resumed>)");
  static const std::regex whole(R"((\w+)\((.*)\)\s+= (-?\d+)(.*))");
  constexpr std::string_view unfinished = " <unfinished ...>";
  std::map<std::string, std::string> begun;
  std::vector<Call> read;
  std::istringstream lines(trace);
  for (std::string thread, rest; lines >> thread && std::getline(lines >> std::ws, rest);) {
    if (rest.ends_with(unfinished)) {
      begun[thread] = rest.substr(0, rest.size() - unfinished.size());
      continue;
    }
    std::smatch match;
    if (std::regex_search(rest, match, resumed)) rest = begun[thread] + match.suffix().str();
    if (std::regex_match(rest, match, whole)) read.push_back({match[1], match[2], std::stol(match[3]), match[4]});
  }
  return read;
}

std::vector<std::string> Matches(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at) found.push_back((*at)[1]);
  return found;
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// Where a call of the *at kind finds a name.
std::string At(const std::string& folder, const std::string& name) {
  return name.starts_with('/') ? name : folder + "/" + name;
}

class Disk {
 public:
  using File = int;

  void Apply(const Call& call) {
    if (call.result < 0) return;
    static const std::regex behindDescriptor(R"(<(/[^>]*)>)");
    static const std::regex quoted(R"re("([^"]*)")re");
    const auto paths = Matches(call.arguments, behindDescriptor);
    const auto texts = Matches(call.arguments, quoted);
    if (call.name == "openat") {
      // Another file, even where its number in the file system was that of a deleted one.
      const auto made = Matches(call.returned, behindDescriptor);
      const bool isNew =
          call.arguments.find("O_TMPFILE") != std::string::npos || call.arguments.find("O_EXCL") != std::string::npos;
      if (isNew && !made.empty()) {
        open_.erase(made.front());
        static_cast<void>(Open(made.front()));
      }
    } else if (call.name == "write" || call.name == "pwrite64" || call.name == "ftruncate") {
      if (!paths.empty()) files_[Open(paths.front())].synced = false;
    } else if (call.name == "fsync" || call.name == "fdatasync") {
      if (!paths.empty()) Sync(paths.front());
    } else if (call.name.starts_with("rename") && paths.size() == 2 && texts.size() == 2) {
      const std::string from = At(paths[0], texts[0]);
      const File file = Open(from);
      open_.erase(from);
      Change(from, std::nullopt);
      Change(At(paths[1], texts[1]), file);
    } else if (call.name == "linkat" && texts.size() == 2) {
      // Of an unnamed file, by /proc/self/fd: the descriptor that was written last.
      const bool unnamed = texts[0].starts_with("/proc/self/fd/") || texts[0].empty();
      Change(At(paths.back(), texts[1]), unnamed ? lastWritten_ : Open(At(paths.front(), texts[0])));
    } else if (call.name == "unlinkat" && !paths.empty() && !texts.empty()) {
      Change(At(paths.front(), texts.front()), std::nullopt);
    }
  }

  // A file that was there, and safe, from the start.
  void Hold(const std::string& path) { names_[path].safe = Open(path); }

  // What may be found under a name after a power loss, the oldest first.
  struct State {
    bool present = false;
    bool whole = true;
  };
  [[nodiscard]] std::vector<State> States(const std::string& path) const {
    const Name& name = names_.at(path);
    std::vector<State> states = {StateOf(name.safe)};
    for (const auto& file : name.unsafe) states.push_back(StateOf(file));
    return states;
  }
  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& [path, name] : names_) names.push_back(path);
    return names;
  }

 private:
  struct Bytes {
    bool synced = true;
  };
  struct Name {
    std::optional<File> safe;
    std::vector<std::optional<File>> unsafe;  // changes since its folder was synced
  };

  [[nodiscard]] State StateOf(const std::optional<File>& file) const {
    return {file.has_value(), !file || files_.at(*file).synced};
  }
  File Open(const std::string& path) {
    const auto [found, isNew] = open_.try_emplace(path, static_cast<File>(files_.size()));
    if (isNew) files_[found->second] = {};
    lastWritten_ = found->second;
    return found->second;
  }
  void Change(const std::string& path, std::optional<File> file) {
    names_[path].unsafe.push_back(file);
    if (file) open_[path] = *file;
    if (!file) open_.erase(path);
  }
  void Sync(const std::string& path) {
    if (open_.contains(path)) files_[open_[path]].synced = true;
    for (auto& [name, entry] : names_) {
      if (FolderOf(name) != path || entry.unsafe.empty()) continue;
      entry.safe = entry.unsafe.back();
      entry.unsafe.clear();
    }
  }

  std::map<std::string, File> open_;  // by the path that strace shows
  std::map<File, Bytes> files_;
  std::map<std::string, Name> names_;
  File lastWritten_ = -1;
};

bool IsEvent(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.starts_with("crMacLog") && name.ends_with("log");
}
bool IsPreferences(const std::string& path) { return path.ends_with("/com.malvex.crashreporter.plist"); }

class Judge {
 public:
  void operator()(const Disk& disk, const std::string& after, bool isHandedOver) {
    for (const std::string& path : disk.Names()) {
      const auto states = disk.States(path);
      for (const Disk::State& state : states) {
        if (IsEvent(path))
          figures_.Count("power lost after a call: an event in the queue is whole", after, state.whole);
        if (IsPreferences(path)) {
          figures_.Count("power lost after a call: the preferences are there and whole", after,
                         state.present && state.whole);
        }
      }
      if (IsEvent(path) && isHandedOver) {
        // Found in each state, or in the act of being deleted, or deleted.
        const bool wasSafe = states.front().present || states.size() == 1;
        figures_.Count("power lost once the event was queued: it is still there", after, wasSafe);
      }
    }
  }
  [[nodiscard]] int Conclude() const { return figures_.Print(); }

 private:
  reliability::Figures figures_;
};

// The event counts as queued from the next process or thread that the daemon starts: an upload or the crash reporter.
void Replay(const std::vector<Call>& recorded, Judge& judge) {
  Disk disk;
  bool hasEvent = false;
  bool isHandedOver = false;
  int number = 0;
  for (const Call& call : recorded) {
    if (number == 0) {
      for (const Call& later : recorded) {
        static const std::regex preferencesFolder(R"(<(/[^>]*/Library/Preferences)>)");
        const auto folders = Matches(later.arguments, preferencesFolder);
        if (!folders.empty()) disk.Hold(folders.front() + "/com.malvex.crashreporter.plist");
      }
    }
    disk.Apply(call);
    const bool places = call.name.starts_with("rename") || call.name == "linkat";
    hasEvent = hasEvent || (places && call.arguments.find("\"crMacLog_") != std::string::npos);
    isHandedOver = isHandedOver || (hasEvent && (call.name.starts_with("clone") || call.name == "vfork"));
    judge(disk, "call " + std::to_string(++number) + ", " + call.name + "(" + call.arguments + ")", isHandedOver);
  }
  if (!isHandedOver) throw std::runtime_error("the recorded run queued nothing");
}

}  // namespace

int main() try {
  Judge judge;
  const auto runs = reliability::PlayScenes(
      {{.name = "full queue", .queued = eventsInQueue}, {.name = "empty queue"}, {.name = "never", .neverSend = true}},
      calls);
  for (const auto& run : runs) {
    if (!run.harm.empty()) throw std::runtime_error("undisturbed: " + run.harm);
    Replay(ReadTrace(run.daemonTrace), judge);
  }
  return judge.Conclude();
} catch (const std::exception& error) {
  std::cerr << "reliability_power_loss: " << error.what() << '\n';
  return 2;
}
