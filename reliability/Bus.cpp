// What may come over a bus, and what a bus itself may do: the daemon lives on in bounded memory, sees the real
// notification afterwards and the host's end in time.
//   reliability_bus --send ACT ...   is what the sending processes run
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <iostream>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "reliability/BusSender.h"
#include "reliability/Figures.h"
#include "reliability/Home.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using demo::Eventually;
using demo::HostRun;
using demo::Program;
using demo::Sandbox;
using reliability::Check;
using reliability::endName;
using reliability::Figures;
using reliability::Home;
using reliability::MemoryKilobytes;
using reliability::Message;
using std::chrono::steady_clock;

constexpr char seenName[] = "exceptionDeliveryCompleteion";
constexpr char seenMessage[] = "Exception delivered";
// Of a peak: the largest message and a copy of its largest text, and all else. Of what is left: nothing to speak of.
constexpr long peakLimitKilobytes = 100L << 10U;
constexpr long growthLimitKilobytes = 6L << 10U;
// Four sleeps of a second and a busy machine; an end that was not announced would take five seconds more.
constexpr auto exitLimit = 20s;

// --- Buses of our own.

// Waits behind a socket's path and does with each connection, on one thread, what it is told.
class RawBus {
 public:
  using Talk = std::function<void(int socket, const std::atomic<bool>& isEnding)>;

  RawBus(fs::path path, Talk talk)
      : path_(std::move(path)), talk_(std::move(talk)), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.string().copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 8) != 0) {
      throw std::system_error(errno, std::generic_category(), path_);
    }
    fs::permissions(path_, fs::perms::all);
    thread_ = std::thread([this] { Listen(); });
  }
  RawBus(const RawBus&) = delete;
  RawBus& operator=(const RawBus&) = delete;
  ~RawBus() {
    isEnding_ = true;
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }

  [[nodiscard]] std::string Address() const { return "unix:path=" + path_.string(); }
  [[nodiscard]] int Connections() const { return connections_; }

 private:
  void Listen() {
    while (!isEnding_) {
      const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (socket < 0) continue;
      ++connections_;
      talk_(socket, isEnding_);
      close(socket);
    }
  }

  fs::path path_;
  Talk talk_;
  int listener_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<int> connections_ = 0;
  std::thread thread_;
};

void StaySilent(int, const std::atomic<bool>& isEnding) {
  while (!isEnding) std::this_thread::sleep_for(10ms);
}

void TalkGarbage(int socket, const std::atomic<bool>&) {
  std::string garbage = "OK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n";
  for (int i = 0; i < 100000; ++i) garbage += static_cast<char>(i * 7919 >> 5);
  send(socket, garbage.data(), garbage.size(), MSG_NOSIGNAL);
}

int Welcome(sd_bus_message* message, void*, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, "org.freedesktop.DBus", "Hello") > 0) {
    return sd_bus_reply_method_return(message, "s", ":1.7");
  }
  return sd_bus_message_is_method_call(message, "org.freedesktop.DBus", "AddMatch") > 0
             ? sd_bus_reply_method_return(message, "")
             : 0;
}

// Lets the daemon in, then calls it again and again and takes none of its answers.
void CallOnly(int socket, const std::atomic<bool>& isEnding) {
  constexpr int calls = 300000;
  sd_bus* made = nullptr;
  Check(sd_bus_new(&made), "bus");
  const std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)> bus(made, sd_bus_close_unref);
  const int own = dup(socket);
  Check(sd_bus_set_fd(made, own, own), "socket");
  Check(sd_bus_set_server(made, 1, sd_id128_t{}), "server");
  Check(sd_bus_set_anonymous(made, 1), "anonymous");
  Check(sd_bus_add_filter(made, nullptr, Welcome, nullptr), "filter");
  Check(sd_bus_start(made), "start");
  const auto talkEnd = steady_clock::now() + 3s;
  while (!isEnding && steady_clock::now() < talkEnd) {
    if (const int done = sd_bus_process(made, nullptr); done < 0) return;
    sd_bus_wait(made, 50000);
  }
  for (int i = 0; i < calls && !isEnding; ++i) {
    sd_bus_message* call = nullptr;
    Check(sd_bus_message_new_method_call(made, &call, ":1.7", "/no/such/object", "no.such.Interface", "Nothing"),
          "call");
    const Message message(call, sd_bus_message_unref);
    std::uint64_t cookie = 0;
    if (sd_bus_send(made, call, &cookie) < 0 || sd_bus_flush(made) < 0) return;
  }
  StaySilent(socket, isEnding);
}

constexpr char busConfiguration[] =
    "<busconfig><type>session</type><listen>unix:path=%</listen><auth>EXTERNAL</auth><policy context=\"default\">"
    "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";

// A message bus that can be ended and started again at its address.
class RealBus {
 public:
  RealBus(const Sandbox& sandbox, const std::string& name) : sandbox_(sandbox), name_(name) {
    std::string text = busConfiguration;
    text.replace(text.find('%'), 1, Path().string());
    sandbox.Put(sandbox.Folder() / (name + ".conf"), text);
    Start();
  }

  void Start() {
    process_.emplace(sandbox_.StartProgram(
        {"/usr/bin/dbus-daemon", "--nofork", "--config-file=" + (sandbox_.Folder() / (name_ + ".conf")).string()},
        name_ + ".out"));
    if (!Eventually([this] { return fs::exists(Path()); })) throw std::runtime_error("no bus");
  }
  void Kill() {
    process_.reset();
    fs::remove(Path());
  }
  [[nodiscard]] std::string Address() const { return "unix:path=" + Path().string(); }

 private:
  [[nodiscard]] fs::path Path() const { return sandbox_.Folder() / (name_ + ".bus"); }

  const Sandbox& sandbox_;
  std::string name_;
  std::optional<Program> process_;
};

// --- The trials.

class Trials {
 public:
  Trials(Sandbox& sandbox, Figures& figures) : sandbox_(sandbox), figures_(figures) {
    fs::copy_file("/proc/self/exe", sandbox.Folder() / "bin/sender");
  }

  // One daemon and everything that may come to it over a bus that works.
  void TryMessages() {
    Daemon daemon = Start("messages", {});
    Settle(daemon);
    const std::string host = std::to_string(daemon.run.host.Id());
    const std::vector<std::vector<std::string>> acts = {
        {"flood", "20000"}, {"huge"}, {"entries"}, {"signatures", host}, {"forged", host}};
    for (const auto& act : acts) {
      const bool isSent = Act(daemon, act).AwaitEnd() == 0;
      const bool isSeen = Sees(daemon, 1);
      figures_.Count("hostile notifications: the real one after them is seen", act[0], isSent && isSeen);
      figures_.Count("hostile notifications: memory is bounded", act[0] + ", " + Memory(daemon), IsBounded(daemon));
    }
    End(daemon, "after hostile notifications");
  }

  void TryEndlessFlood() {
    for (const bool isAnnounced : {false, true}) {
      Daemon daemon = Start(isAnnounced ? "flood-announced" : "flood", {});
      Settle(daemon);
      const Program flood = Act(daemon, {"flood", "0"});
      const bool isSeen = Sees(daemon, 1);
      figures_.Count("endless flood: a notification in it is seen", isAnnounced ? "second" : "first", isSeen);
      figures_.Count("endless flood: memory is bounded", Memory(daemon), IsBounded(daemon));
      if (isAnnounced) {
        daemon.run.host.Say(std::string("notify ") + endName);
        figures_.Count("endless flood: the exit is in time", "announced",
                       Eventually([&] { return !Lives(daemon); }, exitLimit));
      } else {
        End(daemon, "in an endless flood");
      }
    }
  }

  void TryForgedShutDown() {
    RealBus system(sandbox_, "system");
    Daemon daemon = Start("shut-down", {{"DBUS_SYSTEM_BUS_ADDRESS", system.Address()}});
    Settle(daemon);
    const bool isSent = Act(daemon, {"shut-down"}).AwaitEnd() == 0;
    // What was sent before is read before, or within the run loop's next second.
    const bool isSeen = Sees(daemon, 1);
    std::this_thread::sleep_for(3s);
    figures_.Count("forged shut-down is ignored, the real one is not", "forged", isSent && isSeen && Lives(daemon));
    const bool hasEnded =
        Act(daemon, {"logind"}).AwaitEnd() == 0 && Eventually([&] { return !Lives(daemon); }, exitLimit);
    figures_.Count("forged shut-down is ignored, the real one is not", "real", hasEnded);
  }

  void TryBusThatDies() {
    RealBus bus(sandbox_, "mortal");
    Daemon daemon = Start("mortal", {{"DBUS_SESSION_BUS_ADDRESS", bus.Address()}});
    Settle(daemon);
    for (const char* round : {"first", "second"}) {
      bus.Kill();
      std::this_thread::sleep_for(1500ms);
      const bool lives = Lives(daemon);
      bus.Start();
      figures_.Count("bus dies and returns: notifications are seen again", round, lives && IsBackSoon(daemon));
    }
    bus.Kill();
    End(daemon, "without its bus");
  }

  void TryBadBuses() {
    const std::vector<std::pair<const char*, RawBus::Talk>> talks = {{"silent", StaySilent},
                                                                     {"closing", [](int, const std::atomic<bool>&) {}},
                                                                     {"garbage", TalkGarbage},
                                                                     {"calls", CallOnly}};
    const std::vector<const char*> addresses = {"",
                                                "garbage",
                                                "unix:",
                                                "unix:path=",
                                                "unix:path=/dev/zero",
                                                "unix:path=/proc/self/mem",
                                                "unix:path=/nonexistent/bus;unix:abstract=none",
                                                "tcp:host=192.0.2.1,port=1",
                                                "unixexec:path=/bin/sleep,argv1=9",
                                                "unix:path=%zz"};
    std::list<RawBus> buses;
    std::list<Daemon> daemons;
    for (const auto& [name, talk] : talks) {
      const RawBus& bus = buses.emplace_back(sandbox_.Folder() / (std::string(name) + ".bus"), talk);
      daemons.push_back(Start(name, {{"DBUS_SESSION_BUS_ADDRESS", bus.Address()}}));
    }
    const auto start = steady_clock::now();
    for (const char* address : addresses) {
      daemons.push_back(Start(std::string("address '") + address + "'", {{"DBUS_SESSION_BUS_ADDRESS", address}}));
    }
    std::this_thread::sleep_for(8s);
    auto daemon = daemons.begin();
    for (const RawBus& bus : buses) {
      // After 1, 3, 7, ... seconds.
      const auto longest = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - start).count() + 2;
      figures_.Count("bad bus: not asked more than once a second", daemon->name, bus.Connections() <= longest);
      figures_.Count("bad bus: memory is bounded", daemon->name + ", " + Memory(*daemon), IsBounded(*daemon));
      ++daemon;
    }
    for (const Daemon& each : daemons) each.run.host.Say("exit 0");
    for (Daemon& each : daemons) End(each, each.name);
  }

 private:
  struct Daemon {
    std::string name;
    std::map<std::string, std::string> variables;
    HostRun run;
    long memoryAtFirst;
    std::ptrdiff_t seen = 0;
  };

  Daemon Start(const std::string& name, std::map<std::string, std::string> variables) {
    const Home home(sandbox_, name);
    HostRun run = home.Start(variables);
    if (!run.AwaitMessage("runOnce")) throw std::runtime_error("no daemon: " + name);
    const long memory = MemoryKilobytes(run.daemon.Id(), "VmRSS");
    return {.name = name, .variables = std::move(variables), .run = std::move(run), .memoryAtFirst = memory};
  }

  // A process that acts on the daemon's buses.
  [[nodiscard]] Program Act(const Daemon& daemon, std::vector<std::string> act) const {
    auto environment = sandbox_.environment;
    for (const auto& [name, value] : daemon.variables) environment[name] = value;
    act.insert(act.begin(), {sandbox_.Folder() / "bin/sender", "--send"});
    return {std::move(act), environment, sandbox_.Folder() / "sender.out"};
  }

  [[nodiscard]] bool Tell(const Daemon& daemon) const {
    return Act(daemon, {"notify", seenName, std::to_string(daemon.run.host.Id())}).AwaitEnd() == 0;
  }
  // Whether all that was sent so far and `more` beside it is seen. Each is sent once.
  [[nodiscard]] bool Sees(Daemon& daemon, int more) const {
    for (int i = 0; i < more; ++i) {
      if (!Tell(daemon)) return false;
    }
    const auto messages = [&] {
      const auto all = daemon.run.Messages();
      return std::count(all.begin(), all.end(), seenMessage);
    };
    const auto wanted = daemon.seen + more;
    const bool areSeen = Eventually([&] { return messages() >= wanted; });
    daemon.seen = messages();
    return areSeen && daemon.seen == wanted;
  }
  // Waits until the daemon listens: from then on each notification counts.
  void Settle(Daemon& daemon) const {
    if (!IsBackSoon(daemon)) throw std::runtime_error("the daemon does not listen");
  }
  [[nodiscard]] bool IsBackSoon(Daemon& daemon) const {
    const bool isBack = Eventually([&] {
      if (!Tell(daemon)) return false;
      const auto all = daemon.run.Messages();
      return std::count(all.begin(), all.end(), seenMessage) > daemon.seen;
    });
    // What is still on its way comes before an answer to a later one.
    std::this_thread::sleep_for(500ms);
    const auto all = daemon.run.Messages();
    daemon.seen = std::count(all.begin(), all.end(), seenMessage);
    return isBack;
  }

  [[nodiscard]] static std::string Memory(const Daemon& daemon) {
    const pid_t process = daemon.run.daemon.Id();
    return "now " + std::to_string(MemoryKilobytes(process, "VmRSS")) + " kB, at most " +
           std::to_string(MemoryKilobytes(process, "VmHWM")) + " kB";
  }
  // The peak at all times, and soon what there was at first.
  [[nodiscard]] static bool IsBounded(const Daemon& daemon) {
    const pid_t process = daemon.run.daemon.Id();
    const long limit = daemon.memoryAtFirst + growthLimitKilobytes;
    return Lives(daemon) && MemoryKilobytes(process, "VmHWM") <= peakLimitKilobytes &&
           Eventually([&] { return MemoryKilobytes(process, "VmRSS") <= limit; }, 10s);
  }

  // While its host lives, the daemon's end shows in this alone: the host does not take its status.
  [[nodiscard]] static bool Lives(const Daemon& daemon) {
    return MemoryKilobytes(daemon.run.daemon.Id(), "VmRSS") >= 0;
  }
  [[nodiscard]] static bool HasEnded(Daemon& daemon) { return daemon.run.daemon.AwaitEnd(exitLimit) == 0; }
  // The host ends normally: its status has come in time, and so does the exit.
  void End(Daemon& daemon, const std::string& name) {
    daemon.run.host.Say("exit 0");
    const bool hasEnded = HasEnded(daemon);
    figures_.Count("the host's end is noticed in time", name,
                   hasEnded && daemon.run.Logged("Normal Exit") && !daemon.run.Logged("exitStatus -1"));
  }

  Sandbox& sandbox_;
  Figures& figures_;
};

}  // namespace

int main(int count, char* arguments[]) try {
  const std::vector<std::string> texts(arguments + 1, arguments + count);
  if (!texts.empty() && texts[0] == "--send") {
    reliability::Send({texts.begin() + 1, texts.end()});
    return 0;
  }
  std::signal(SIGPIPE, SIG_IGN);
  Sandbox sandbox;
  Figures figures;
  Trials trials(sandbox, figures);
  trials.TryMessages();
  trials.TryEndlessFlood();
  trials.TryForgedShutDown();
  trials.TryBusThatDies();
  trials.TryBadBuses();
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "reliability_bus: " << error.what() << '\n';
  return 2;
}
