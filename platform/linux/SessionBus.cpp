#include "platform/linux/SessionBus.h"

#include <systemd/sd-login.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace platform {
namespace {

constexpr std::size_t textLimitBytes = std::size_t{4} << 10U;
constexpr std::size_t entriesLimit = 256;
constexpr auto loginName = "org.freedesktop.login1";
constexpr auto loginPath = "/org/freedesktop/login1";
constexpr auto loginManager = "org.freedesktop.login1.Manager";
constexpr auto loginSession = "org.freedesktop.login1.Session";
constexpr auto closingState = "closing";

using UserInfo = std::map<std::string, std::string>;

struct Notification {
  std::string name;
  UserInfo userInfo;
};

// Takes ownership of a text that libsystemd allocated.
std::string Taken(char* text) {
  std::string copy = text == nullptr ? "" : text;
  std::free(text);
  return copy;
}

// In an address, these stand for themselves.
bool IsPlain(char character) {
  constexpr std::string_view plain = "-_/.\\*";
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || plain.find(character) != std::string_view::npos;
}

std::string EscapedForAddress(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string escaped;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    escaped +=
        IsPlain(character) ? std::string(1, character) : std::string{'%', digits[byte >> 4U], digits[byte & 15U]};
  }
  return escaped;
}

bool HasSignature(sd_bus_message* message, const char* signature) {
  return sd_bus_message_has_signature(message, signature) > 0;
}

// None for the end of a container and for what is malformed.
std::optional<std::string_view> ReadText(sd_bus_message* message, char type = 's') {
  const char* text = nullptr;
  if (sd_bus_message_read_basic(message, type, &text) <= 0) return std::nullopt;
  return text;
}

// False when malformed. Entries that are too long are passed over, and so is all that follows the last one looked at:
// to skip millions of them would keep everything else waiting.
bool ReadUserInfo(sd_bus_message* message, UserInfo& userInfo) {
  if (sd_bus_message_enter_container(message, 'a', "{ss}") < 0) return false;
  for (std::size_t entries = 0; entries < entriesLimit; ++entries) {
    const int entered = sd_bus_message_enter_container(message, 'e', "ss");
    if (entered <= 0) return entered == 0;
    const auto key = ReadText(message);
    const auto value = ReadText(message);
    if (!key || !value || sd_bus_message_exit_container(message) < 0) return false;
    if (key->size() > textLimitBytes || value->size() > textLimitBytes) continue;
    userInfo.insert_or_assign(std::string(*key), std::string(*value));
  }
  return true;
}

std::optional<Notification> ReadNotification(sd_bus_message* message) {
  if (!HasSignature(message, notificationSignature)) return std::nullopt;
  const auto name = ReadText(message);
  if (!name || name->size() > textLimitBytes) return std::nullopt;
  Notification notification{std::string(*name), {}};
  return ReadUserInfo(message, notification.userInfo) ? std::optional(std::move(notification)) : std::nullopt;
}

int OnPosted(sd_bus_message* message, void* deliver, sd_bus_error* /*error*/) noexcept {
  if (const auto notification = ReadNotification(message)) {
    (*static_cast<const Deliver*>(deliver))(notification->name, notification->userInfo);
  }
  return 0;
}

// The bus filters by the owner of logind's name what is sent to everybody. What is addressed to us alone may come from
// anybody.
bool IsFromLogind(sd_bus_message* message) { return sd_bus_message_get_destination(message) == nullptr; }

int OnPrepareForShutdown(sd_bus_message* message, void* context, sd_bus_error* /*error*/) noexcept {
  int begins = 0;
  if (IsFromLogind(message) && HasSignature(message, "b") && sd_bus_message_read_basic(message, 'b', &begins) > 0 &&
      begins != 0) {
    static_cast<const LoginBus*>(context)->DeliverLogOut();
  }
  return 0;
}

int OnSessionRemoved(sd_bus_message* message, void* context, sd_bus_error* /*error*/) noexcept {
  const auto* login = static_cast<const LoginBus*>(context);
  if (IsFromLogind(message) && HasSignature(message, "so") && ReadText(message) == login->Session()) {
    login->DeliverLogOut();
  }
  return 0;
}

bool SaysClosing(sd_bus_message* message) {
  if (ReadText(message) != loginSession || sd_bus_message_enter_container(message, 'a', "{sv}") < 0) return false;
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    if (ReadText(message) == "State") {
      return sd_bus_message_enter_container(message, 'v', "s") > 0 && ReadText(message) == closingState;
    }
    if (sd_bus_message_skip(message, "v") < 0 || sd_bus_message_exit_container(message) < 0) return false;
  }
  return false;
}

// logind does not always say what its session's state is now.
bool IsClosing(const std::string& session) {
  char* state = nullptr;
  return sd_session_get_state(session.c_str(), &state) >= 0 && Taken(state) == closingState;
}

int OnSessionChanged(sd_bus_message* message, void* context, sd_bus_error* /*error*/) noexcept {
  const auto* login = static_cast<const LoginBus*>(context);
  if (!IsFromLogind(message) || !HasSignature(message, "sa{sv}as")) return 0;
  if (SaysClosing(message) || IsClosing(login->Session())) login->DeliverLogOut();
  return 0;
}

}  // namespace

std::string SessionBusAddress() {
  if (auto address = Environment("DBUS_SESSION_BUS_ADDRESS")) return *address;
  const auto runtimeFolder = Environment("XDG_RUNTIME_DIR");
  return runtimeFolder ? "unix:path=" + EscapedForAddress(*runtimeFolder) + "/bus" : std::string();
}

SessionBus::SessionBus(Deliver deliver)
    : deliver_(std::move(deliver)), connection_(SessionBusAddress(), [this](sd_bus* bus) {
        return sd_bus_match_signal_async(bus, nullptr, nullptr, nullptr, notificationInterface, notificationMember,
                                         OnPosted, nullptr, &deliver_);
      }) {}

LoginBus::LoginBus(Deliver deliver)
    : deliver_(std::move(deliver)),
      connection_(Environment("DBUS_SYSTEM_BUS_ADDRESS").value_or("unix:path=/run/dbus/system_bus_socket"),
                  [this](sd_bus* bus) { return Subscribe(bus); }) {}

void LoginBus::DeliverLogOut() const { deliver_(logoutName, {}); }

int LoginBus::Subscribe(sd_bus* bus) {
  const int result = sd_bus_match_signal_async(bus, nullptr, loginName, loginPath, loginManager, "PrepareForShutdown",
                                               OnPrepareForShutdown, nullptr, this);
  char* session = nullptr;
  if (result < 0 || sd_pid_get_session(0, &session) < 0) return result;
  session_ = Taken(session);
  char* path = nullptr;
  if (sd_bus_path_encode("/org/freedesktop/login1/session", session_.c_str(), &path) < 0) return -ENOMEM;
  const std::string object = Taken(path);
  const int removed = sd_bus_match_signal_async(bus, nullptr, loginName, loginPath, loginManager, "SessionRemoved",
                                                OnSessionRemoved, nullptr, this);
  if (removed < 0) return removed;
  return sd_bus_match_signal_async(bus, nullptr, loginName, object.c_str(), "org.freedesktop.DBus.Properties",
                                   "PropertiesChanged", OnSessionChanged, nullptr, this);
}

}  // namespace platform
