#include "reliability/BusSender.h"

#include <functional>
#include <system_error>

namespace reliability {
namespace {

constexpr char interfaceName[] = "com.malvex.DistributedNotification";
constexpr std::size_t hugeBytes = std::size_t{30} << 20U;

class Sender {
 public:
  explicit Sender(bool isSystem = false) {
    Check(isSystem ? sd_bus_open_system(&bus_) : sd_bus_open_user(&bus_), "bus");
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  ~Sender() { sd_bus_flush_close_unref(bus_); }

  [[nodiscard]] sd_bus* Bus() const { return bus_; }

  [[nodiscard]] Message Signal() const {
    sd_bus_message* made = nullptr;
    Check(sd_bus_message_new_signal(bus_, &made, "/", interfaceName, "Posted"), "signal");
    return {made, sd_bus_message_unref};
  }

  void Notify(const std::string& name, const std::string& key, const std::string& value) const {
    const Message message = Signal();
    Check(sd_bus_message_append(message.get(), "sa{ss}", name.c_str(), 1, key.c_str(), value.c_str()), "append");
    Send(message);
  }

  // Returns once the bus took it.
  void Send(const Message& message) const {
    Check(sd_bus_send(bus_, message.get(), nullptr), "send");
    Check(sd_bus_flush(bus_), "flush");
  }

 private:
  sd_bus* bus_ = nullptr;
};

void SendFlood(const Sender& sender, long count) {
  for (long i = 0; count == 0 || i < count; ++i) sender.Notify("noise " + std::to_string(i), "pid", "1");
}

void SendHuge(const Sender& sender) {
  const std::string huge(hugeBytes, 'x');
  for (int i = 0; i < 3; ++i) {
    sender.Notify(huge, "pid", "1");
    sender.Notify(endName, huge, "1");
    sender.Notify(endName, "pid", huge);
  }
}

void SendEntries(const Sender& sender) {
  constexpr std::size_t entryBytes = 24;
  for (int i = 0; i < 3; ++i) {
    const Message message = sender.Signal();
    Check(sd_bus_message_append(message.get(), "s", endName), "append");
    Check(sd_bus_message_open_container(message.get(), 'a', "{ss}"), "open");
    for (std::size_t entry = 0; entry < hugeBytes / entryBytes; ++entry) {
      Check(sd_bus_message_append(message.get(), "{ss}", std::to_string(entry).c_str(), "value"), "append");
    }
    Check(sd_bus_message_close_container(message.get()), "close");
    sender.Send(message);
  }
}

void SendSignatures(const Sender& sender, const std::string& process) {
  const char* name = endName;
  const char* pid = process.c_str();
  const std::function<int(sd_bus_message*)> bodies[] = {
      [](sd_bus_message*) { return 0; },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "s", name); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "i", 7); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "a{ss}", 1, "pid", pid); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "a{ss}s", 1, "pid", pid, name); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "sa{ss}s", name, 1, "pid", pid, name); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "sa{sv}", name, 1, "pid", "s", pid); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "oa{ss}", "/appTerminatedNormally", 1, "pid", pid); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "sas", name, 2, "pid", pid); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "v", "s", name); },
      [=](sd_bus_message* m) { return sd_bus_message_append(m, "(sa{ss})", name, 1, "pid", pid); }};
  for (const auto& body : bodies) {
    const Message message = sender.Signal();
    Check(body(message.get()), "append");
    for (int i = 0; i < 100; ++i) sender.Send(message);
  }
}

// Nothing of this is the host's normal end.
void SendForged(const Sender& sender, const std::string& process) {
  for (const std::string& id :
       {std::string(), " " + process, process + " ", "0" + process, process + "0", std::string("1")}) {
    sender.Notify(endName, "pid", id);
  }
  for (const char* key : {"PID", "", "process"}) sender.Notify(endName, key, process);
  for (const char* name : {"", "appterminatednormally", "appTerminatedNormally ", "com.apple.logout"}) {
    sender.Notify(name, "pid", process);
  }
}

// The machine's shut-down and the session's end, from somebody who is not logind or, with `isLogind`, is.
void SendShutDown(const Sender& sender, bool isLogind) {
  constexpr char manager[] = "org.freedesktop.login1.Manager";
  constexpr char path[] = "/org/freedesktop/login1";
  if (isLogind) Check(sd_bus_request_name(sender.Bus(), "org.freedesktop.login1", 0), "name");
  for (int receiver = -1; receiver < 20; ++receiver) {
    sd_bus_message* made = nullptr;
    Check(sd_bus_message_new_signal(sender.Bus(), &made, path, manager, "PrepareForShutdown"), "signal");
    const Message message(made, sd_bus_message_unref);
    Check(sd_bus_message_append(made, "b", 1), "append");
    if (receiver >= 0) Check(sd_bus_message_set_destination(made, (":1." + std::to_string(receiver)).c_str()), "to");
    if (!isLogind || receiver < 0) sender.Send(message);
  }
}

}  // namespace

void Check(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

void Send(const std::vector<std::string>& act) {
  const std::string& verb = act.at(0);
  const Sender sender(verb == "shut-down" || verb == "logind");
  if (verb == "flood") SendFlood(sender, std::stol(act.at(1)));
  if (verb == "huge") SendHuge(sender);
  if (verb == "entries") SendEntries(sender);
  if (verb == "signatures") SendSignatures(sender, act.at(1));
  if (verb == "forged") SendForged(sender, act.at(1));
  if (verb == "notify") sender.Notify(act.at(1), "pid", act.at(2));
  if (verb == "shut-down" || verb == "logind") SendShutDown(sender, verb == "logind");
}

}  // namespace reliability
