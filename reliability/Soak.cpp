// Ten minutes with an hour's worth of hosts: they start, crash, are killed and end, several at a time, beside one that
// lives through all of it. Each crash is delivered exactly once, and the daemon that waits holds no more at the end.
//   reliability_soak [--short]: 30 seconds
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "demo/Sandbox.h"
#include "reliability/Figures.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto fullLength = 10min;
constexpr auto shortLength = 30s;
constexpr std::size_t hostsAtOnce = 6;
constexpr long memorySlackKilobytes = 64;

struct Holding {
  long privateKilobytes = 0;
  std::ptrdiff_t descriptors = 0;
  std::ptrdiff_t threads = 0;
};

std::ptrdiff_t EntriesOf(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

Holding HeldBy(pid_t process) {
  const fs::path facts = fs::path("/proc") / std::to_string(process);
  std::istringstream memory(demo::ContentOf(facts / "smaps_rollup"));
  Holding held{.descriptors = EntriesOf(facts / "fd"), .threads = EntriesOf(facts / "task")};
  for (std::string word; memory >> word;) {
    if (word == "Private_Dirty:") memory >> held.privateKilobytes;
  }
  if (held.privateKilobytes == 0) throw std::runtime_error("no memory figures");
  return held;
}

// A zombie has no command line.
std::size_t Strays(const fs::path& folder) {
  std::size_t strays = 0;
  for (const auto& process : fs::directory_iterator("/proc")) {
    const std::string command = demo::ContentOf(process.path() / "cmdline");
    for (const char* program : {"bin/CRDaemon", "bin/SampleHost", "bin/SampleReporter"}) {
      if (command.starts_with((folder / program).string())) ++strays;
    }
  }
  return strays;
}

class Soak {
 public:
  void Run(steady_clock::duration length) {
    demo::HostRun witness = StartHost("witness");
    const Holding first = Settled(witness);
    const auto end = steady_clock::now() + length;
    while (steady_clock::now() < end) Round();
    const Holding last = HeldBy(witness.daemon.Id());
    figures_.Count(
        "daemon that waits through it: no more memory, descriptors, threads",
        std::to_string(first.privateKilobytes) + " kB, then " + std::to_string(last.privateKilobytes) + " kB",
        last.privateKilobytes <= first.privateKilobytes + memorySlackKilobytes &&
            last.descriptors == first.descriptors && last.threads == first.threads);
    Crash(witness, "witness");
    AwaitEnd(witness, "witness");
  }

  [[nodiscard]] int Conclude() {
    std::map<std::string, int> deliveries;
    for (const demo::Receipt& receipt : sandbox_.Received()) ++deliveries[receipt.Data("event.user_guid")];
    for (const std::string& host : crashed_) {
      figures_.Count("crash among many hosts: delivered exactly once", host, std::exchange(deliveries[host], 0) == 1);
    }
    for (const auto& [host, count] : deliveries) {
      if (count > 0) figures_.Count("crash among many hosts: delivered exactly once", host + " did not crash", false);
    }
    const bool quiet = demo::Eventually([this] { return Strays(sandbox_.Folder()) == 0; });
    figures_.Count("after all of it: no process is left", "a process is left", quiet);
    std::error_code none;
    const bool empty = fs::directory_iterator(sandbox_.Queue(), none) == fs::directory_iterator();
    figures_.Count("after all of it: the queue is empty", "files in the queue", empty);
    return figures_.Print();
  }

 private:
  enum class Fate { crash, exit, killed };

  [[nodiscard]] demo::HostRun StartHost(const std::string& name) const {
    return sandbox_.StartWatchedHost({.elements = {{26, name}}, .count = 31});
  }

  // What is still being set up is no growth.
  static Holding Settled(const demo::HostRun& run) {
    Holding before = HeldBy(run.daemon.Id());
    static_cast<void>(demo::Eventually([&] {
      const auto until = steady_clock::now() + 2s;
      static_cast<void>(demo::Eventually([&] { return steady_clock::now() > until; }));
      const Holding now = HeldBy(run.daemon.Id());
      const bool same = now.privateKilobytes == before.privateKilobytes && now.threads == before.threads &&
                        now.descriptors == before.descriptors;
      before = now;
      return same;
    }));
    return before;
  }

  void Crash(demo::HostRun& run, const std::string& name) {
    run.host.Say("crash");
    if (!run.host.AwaitEnd()) throw std::runtime_error("the host does not crash");
    sandbox_.Put(sandbox_.Reports() / ("Photo-" + name + ".ips"), demo::SystemReport(run.host.Id()));
    crashed_.push_back(name);
  }

  void AwaitEnd(demo::HostRun& run, const std::string& name) {
    if (!run.host.AwaitEnd()) throw std::runtime_error("the host does not end");
    const auto status = run.daemon.AwaitEnd();
    figures_.Count("daemon among many hosts: ends by itself, with status 0", name, status == 0);
  }

  // Some at a time: of three hosts one crashes, one ends and one is ended.
  void Round() {
    std::vector<std::pair<std::string, demo::HostRun>> hosts;
    for (std::size_t i = 0; i < hostsAtOnce; ++i) {
      const std::string name = "host" + std::to_string(++started_);
      hosts.emplace_back(name, StartHost(name));
    }
    for (std::size_t i = 0; i < hosts.size(); ++i) {
      auto& [name, run] = hosts[i];
      const auto fate = static_cast<Fate>(i % 3);
      if (fate == Fate::crash) Crash(run, name);
      if (fate == Fate::exit) run.host.Say("exit 0");
      if (fate == Fate::killed) run.host.Say("signal " + std::to_string(SIGTERM));
    }
    for (auto& [name, run] : hosts) AwaitEnd(run, name);
  }

  demo::Sandbox sandbox_;
  reliability::Figures figures_;
  std::vector<std::string> crashed_;
  int started_ = 0;
};

}  // namespace

int main(int argc, char* argv[]) try {
  Soak soak;
  soak.Run(reliability::IsShort(argc, argv) ? steady_clock::duration(shortLength) : fullLength);
  return soak.Conclude();
} catch (const std::exception& error) {
  std::cerr << "reliability_soak: " << error.what() << '\n';
  return 2;
}
