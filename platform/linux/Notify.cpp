#include "platform/Notify.h"

#include <poll.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "platform/linux/BusConnection.h"
#include "platform/linux/SessionBus.h"

namespace platform {
namespace {

using std::chrono::steady_clock;
constexpr auto patience = std::chrono::seconds(5);
constexpr int pauseMilliseconds = 100;

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;
using Answered = std::optional<std::error_code>;

// The bus takes messages in their order: its answer to this one says that it has all that went before.
int OnAnswer(sd_bus_message* message, void* answered, sd_bus_error* /*error*/) noexcept {
  const int error = sd_bus_message_get_errno(message);
  *static_cast<Answered*>(answered) = std::error_code(error, std::generic_category());
  return 0;
}

int AskForAnswer(sd_bus* bus, Answered& answered) {
  return sd_bus_call_method_async(bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                  "GetId", OnAnswer, &answered, nullptr);
}

// Connects as the daemon does, sends, and waits until the bus has answered.
std::error_code Converse(const std::function<int(sd_bus*)>& send) {
  const std::string address = SessionBusAddress();
  if (address.empty()) return std::make_error_code(std::errc::destination_address_required);
  Answered answered;
  BusConnection connection(address, [&](sd_bus* bus) {
    const int sent = send(bus);
    return sent < 0 ? sent : AskForAnswer(bus, answered);
  });
  const auto deadline = steady_clock::now() + patience;
  while (!answered) {
    connection.Run();
    pollfd input = connection.Input();
    if (input.fd < 0 && !answered) return std::make_error_code(std::errc::connection_refused);
    if (steady_clock::now() >= deadline) return std::make_error_code(std::errc::timed_out);
    if (!answered) poll(&input, 1, pauseMilliseconds);
  }
  return *answered;
}

int Fill(sd_bus_message* message, const std::string& name, const std::map<std::string, std::string>& userInfo) {
  int result = sd_bus_message_append(message, "s", name.c_str());
  if (result >= 0) result = sd_bus_message_open_container(message, 'a', "{ss}");
  for (const auto& [key, value] : userInfo) {
    if (result >= 0) result = sd_bus_message_append(message, "{ss}", key.c_str(), value.c_str());
  }
  return result < 0 ? result : sd_bus_message_close_container(message);
}

}  // namespace

std::error_code ReachNotifications() {
  return Converse([](sd_bus*) { return 0; });
}

std::error_code PostNotification(const std::string& name, const std::map<std::string, std::string>& userInfo) {
  return Converse([&](sd_bus* bus) {
    sd_bus_message* made = nullptr;
    const int result = sd_bus_message_new_signal(bus, &made, "/", notificationInterface, notificationMember);
    if (result < 0) return result;
    const Message message(made, sd_bus_message_unref);
    const int filled = Fill(made, name, userInfo);
    return filled < 0 ? filled : sd_bus_send(bus, made, nullptr);
  });
}

}  // namespace platform
