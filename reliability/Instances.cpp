// Many daemons of one user on one queue: every event is delivered, and a second time only where a daemon was killed
// between the answer and its acting on it.
#include <algorithm>
#include <csignal>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <vector>

#include "reliability/Figures.h"
#include "reliability/Home.h"
#include "reliability/RawService.h"

namespace {

using namespace std::chrono_literals;
using demo::Eventually;
using demo::HostRun;
using demo::Sandbox;
using reliability::Answer;
using reliability::Certificate;
using reliability::Connection;
using reliability::Figures;
using reliability::Home;
using reliability::RawService;

std::string TextAfter(const std::string& body, const std::string& label) {
  const std::size_t at = body.find(label);
  if (at == std::string::npos) return {};
  const std::size_t begin = at + label.size();
  return body.substr(begin, body.find('"', begin) - begin);
}

// Takes down which events it accepted, and answers as its temper is.
class Ledger {
 public:
  enum class Temper { kind, moody };

  Ledger(const Sandbox& sandbox, std::string label, unsigned seed, Temper temper = Temper::kind)
      : label_("\"" + std::move(label) + "\":\""),
        temper_(temper),
        random_(seed),
        certificate_(Certificate::Make("IP:127.0.0.1", -1, 2)),
        trusted_(sandbox.Folder() / "ledger.pem"),
        service_(certificate_, [this](Connection& connection) { Talk(connection); }) {
    sandbox.Put(trusted_, certificate_.Pem());
  }

  [[nodiscard]] std::map<std::string, std::string> Variables() const {
    return {{"CRDAEMON_INGEST_URL", service_.Url()}, {"SSL_CERT_FILE", trusted_}};
  }
  // How often each was accepted: that is, the whole answer was sent.
  [[nodiscard]] std::map<std::string, int> Accepted() {
    const std::lock_guard lock(mutex_);
    return accepted_;
  }

 private:
  int Roll(int sides) {
    const std::lock_guard lock(mutex_);
    return std::uniform_int_distribution(0, sides - 1)(random_);
  }

  void Talk(Connection& connection) {
    while (const auto body = connection.TakeRequest()) {
      if (!connection.Pause(std::chrono::milliseconds(Roll(4)))) return;
      const int mood = temper_ == Temper::kind ? 9 : Roll(10);
      if (mood == 0) return connection.Reset();
      if (mood == 1) return;
      const bool accepts = mood > 3;
      // Taken down first: the other side may act on the answer before this thread goes on.
      const std::string id = TextAfter(*body, label_);
      if (accepts) Count(id, 1);
      if (!connection.Send(Answer(accepts ? 200 : 503))) {
        if (accepts) Count(id, -1);
        return;
      }
    }
  }
  void Count(const std::string& id, int change) {
    const std::lock_guard lock(mutex_);
    accepted_[id] += change;
  }

  std::string label_;
  Temper temper_;
  std::mutex mutex_;  // of the two below
  std::mt19937 random_;
  std::map<std::string, int> accepted_;
  Certificate certificate_;
  std::filesystem::path trusted_;
  RawService service_;
};

std::vector<std::string> QueueEvents(const Home& home, int count) {
  std::vector<std::string> ids;
  for (int event = 0; event < count; ++event) {
    ids.push_back("event-" + std::to_string(event));
    home.QueueEvent(ids.back());
  }
  return ids;
}

std::size_t FilesIn(const Home& home) {
  const auto files = std::filesystem::directory_iterator(home.Queue());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

class Trials {
 public:
  Trials(Sandbox& sandbox, Figures& figures) : sandbox_(sandbox), figures_(figures) {}

  void TryManyOnOneQueue(int daemons, int events) {
    const Home home(sandbox_, "many");
    const auto ids = QueueEvents(home, events);
    Ledger ledger(sandbox_, "event.guid", 1);
    std::vector<HostRun> runs;
    runs.reserve(static_cast<std::size_t>(daemons));
    for (int i = 0; i < daemons; ++i) runs.push_back(home.Start(ledger.Variables()));
    static_cast<void>(Eventually([&] { return FilesIn(home) == 0; }));
    for (const std::string& id : ids) {
      const int times = ledger.Accepted()[id];
      figures_.Count("many daemons, one queue: each event once", Times(id, times), times == 1);
    }
    figures_.Count("many daemons, one queue: no file is left", std::to_string(FilesIn(home)), FilesIn(home) == 0);
  }

  void TryCrashesAtOnce(int hosts) {
    const Home home(sandbox_, "crashes");
    Ledger ledger(sandbox_, "source.name", 2);
    std::vector<HostRun> runs;
    runs.reserve(static_cast<std::size_t>(hosts));
    for (int i = 0; i < hosts; ++i) runs.push_back(home.Start(ledger.Variables(), {.elements = {{2, Name(i)}}}));
    for (const HostRun& run : runs) static_cast<void>(run.AwaitMessage("runOnce"));
    for (const HostRun& run : runs) run.host.Say("crash");
    for (int i = 0; i < hosts; ++i) {
      HostRun& run = runs[static_cast<std::size_t>(i)];
      static_cast<void>(run.host.AwaitEnd());
      sandbox_.Put(home.Reports() / (Name(i) + "-Darkroom.ips"), demo::SystemReport(run.host.Id()));
    }
    for (HostRun& run : runs) static_cast<void>(run.daemon.AwaitEnd());
    for (int i = 0; i < hosts; ++i) {
      const int times = ledger.Accepted()[Name(i)];
      figures_.Count("hosts crash at once: each crash once", Times(Name(i), times), times == 1);
    }
    figures_.Count("hosts crash at once: no file is left", std::to_string(FilesIn(home)), FilesIn(home) == 0);
  }

  // Some connections are reset or closed instead of answered, some events refused: those come again, the others do not.
  void TryMoodyService(unsigned seed, int daemons, int events) {
    const Home home(sandbox_, "moody-" + std::to_string(seed));
    const auto ids = QueueEvents(home, events);
    Ledger ledger(sandbox_, "event.guid", seed, Ledger::Temper::moody);
    // A run tries each event once and gives up when its helper has failed three times: somebody has to come back.
    const bool isEmpty = Rounds(home, ledger, daemons);
    for (const std::string& id : ids) {
      const int times = ledger.Accepted()[id];
      figures_.Count("answers are lost or refused: each event is accepted once", Times(id, times), times == 1);
    }
    figures_.Count("answers are lost or refused: the queue empties", std::to_string(seed), isEmpty);
  }

  // Daemons are killed wherever they are and others come, to lock files that nobody holds.
  void TryKills(unsigned seed, int daemons, int events, int kills) {
    const Home home(sandbox_, "kills-" + std::to_string(seed));
    const auto ids = QueueEvents(home, events);
    for (const std::string& id : ids) sandbox_.Put(home.Queue() / ("crMacLog_" + id + ".log.lck"), "");
    Ledger ledger(sandbox_, "event.guid", seed);
    std::mt19937 random(seed);
    std::vector<HostRun> runs;
    runs.reserve(static_cast<std::size_t>(daemons) + static_cast<std::size_t>(kills));
    for (int i = 0; i < daemons; ++i) runs.push_back(home.Start(ledger.Variables()));
    for (int i = 0; i < kills; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution(0, 60)(random)));
      const auto victim = std::uniform_int_distribution<std::size_t>(0, runs.size() - 1)(random);
      kill(runs[victim].daemon.Id(), SIGKILL);
      runs.push_back(home.Start(ledger.Variables()));
    }
    const bool isEmpty = Rounds(home, ledger, 1);
    int again = 0;
    for (const std::string& id : ids) {
      const int times = ledger.Accepted()[id];
      again += std::max(times - 1, 0);
      figures_.Count("daemons are killed: each event at least once", Times(id, times), times >= 1);
    }
    const std::string name = "seed " + std::to_string(seed) + ": " + std::to_string(again) + " again";
    figures_.Count("daemons are killed: no more second deliveries than kills", name, again <= kills);
    figures_.Count("daemons are killed: the queue empties", name, isEmpty);
    figures_.Count("daemons are killed: no more lock files are left than kills", std::to_string(FilesIn(home)),
                   FilesIn(home) <= static_cast<std::size_t>(kills));
  }

 private:
  static std::string Name(int host) { return "Photo" + std::string(1, static_cast<char>('A' + host)); }
  static std::string Times(const std::string& id, int times) { return id + ", " + std::to_string(times) + " times"; }

  // Daemons come until the queue is empty. False when it never is.
  bool Rounds(const Home& home, const Ledger& ledger, int daemons) {
    constexpr int most = 30;
    for (int round = 0; round < most && !home.Queued().empty(); ++round) {
      std::vector<HostRun> runs;
      runs.reserve(static_cast<std::size_t>(daemons));
      for (int i = 0; i < daemons; ++i) runs.push_back(home.Start(ledger.Variables()));
      for (const HostRun& run : runs) static_cast<void>(run.AwaitMessage("runOnce"));
      for (HostRun& run : runs) run.host.Say("exit 0");
      for (HostRun& run : runs) static_cast<void>(run.daemon.AwaitEnd());
    }
    return home.Queued().empty();
  }

  Sandbox& sandbox_;
  Figures& figures_;
};

}  // namespace

int main(int count, char* arguments[]) try {
  const bool isShort = reliability::IsShort(count, arguments);
  std::signal(SIGPIPE, SIG_IGN);
  Sandbox sandbox;
  Figures figures;
  Trials trials(sandbox, figures);
  trials.TryManyOnOneQueue(isShort ? 8 : 20, isShort ? 200 : 1000);
  trials.TryCrashesAtOnce(8);
  for (unsigned seed = 1; seed <= (isShort ? 1U : 5U); ++seed) {
    trials.TryMoodyService(seed, 4, isShort ? 20 : 60);
    trials.TryKills(seed, 6, isShort ? 150 : 400, isShort ? 10 : 40);
  }
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "reliability_instances: " << error.what() << '\n';
  return 2;
}
