#include <poll.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>

#include "hostkit/posix/Machine.h"
#include "support/FixedNames.h"

namespace hostkit {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds patience{2};
constexpr char interface[] = "com.malvex.DistributedNotification";
constexpr char member[] = "Posted";

using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)>;  // never flushed: that may block
using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

std::string EscapedForAddress(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
                         std::string_view("-_/.\\*").find(character) != std::string_view::npos;
    if (isPlain) {
      escaped += character;
    } else {
      escaped += {'%', "0123456789abcdef"[byte >> 4U], "0123456789abcdef"[byte & 15U]};
    }
  }
  return escaped;
}

// Local sockets alone: to look up a host's name may take any time.
std::string LocalBusAddress() {
  const char* addresses = secure_getenv("DBUS_SESSION_BUS_ADDRESS");
  if (addresses == nullptr) {
    const char* folder = secure_getenv("XDG_RUNTIME_DIR");
    return folder == nullptr ? "" : "unix:path=" + EscapedForAddress(folder) + "/bus";
  }
  std::string local;
  for (std::string_view rest = addresses; !rest.empty();) {
    const std::string_view address = rest.substr(0, rest.find(';'));
    rest.remove_prefix(address.size() < rest.size() ? address.size() + 1 : rest.size());
    if (address.substr(0, 5) != "unix:") continue;
    if (!local.empty()) local += ';';
    local += address;
  }
  return local;
}

int OnAnswer(sd_bus_message* message, void* answered, sd_bus_error* /*error*/) noexcept {
  *static_cast<std::optional<int>*>(answered) = sd_bus_message_get_errno(message);
  return 0;
}

// The bus takes messages in their order: its answer to the second says that it has the first.
int Send(sd_bus* bus, const std::string& name, const std::string& processId, std::optional<int>& answered) {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_signal(bus, &made, "/", interface, member);
  const Message message(made, sd_bus_message_unref);
  if (result >= 0)
    result = sd_bus_message_append(made, "sa{ss}", name.c_str(), 1, names::processIdKey, processId.c_str());
  if (result >= 0) result = sd_bus_send(bus, made, nullptr);
  if (result < 0) return result;
  return sd_bus_call_method_async(bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "GetId", OnAnswer, &answered, nullptr);
}

int Connect(sd_bus* bus, const std::string& address) {
  int result = sd_bus_set_address(bus, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(bus, 1);
  if (result >= 0) result = sd_bus_negotiate_fds(bus, 0);
  return result < 0 ? result : sd_bus_start(bus);
}

// Runs the connection until the bus has answered. An error number, 0 for none.
int AwaitAnswer(sd_bus* bus, const std::optional<int>& answered) {
  const auto deadline = steady_clock::now() + patience;
  while (!answered) {
    const int processed = sd_bus_process(bus, nullptr);
    if (processed < 0) return -processed;
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) return ETIMEDOUT;
    const int events = sd_bus_get_events(bus);
    if (events < 0) return -events;
    pollfd input{sd_bus_get_fd(bus), static_cast<short>(events), 0};
    if (processed == 0) poll(&input, 1, static_cast<int>(left.count()));
  }
  return *answered;
}

}  // namespace

int PostNotification(const std::string& name, const std::string& processId) {
  const std::string address = LocalBusAddress();
  if (address.empty()) return EDESTADDRREQ;
  sd_bus* made = nullptr;
  int result = sd_bus_new(&made);
  const Bus bus(made, sd_bus_close_unref);
  std::optional<int> answered;
  if (result >= 0) result = Connect(made, address);
  if (result >= 0) result = Send(made, name, processId, answered);
  return result < 0 ? -result : AwaitAnswer(made, answered);
}

}  // namespace hostkit
