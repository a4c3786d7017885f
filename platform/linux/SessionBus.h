#pragma once

#include <functional>
#include <map>
#include <string>

#include "platform/linux/BusConnection.h"

// The two buses that distributed notifications come from. What they deliver has been checked: signature, sizes and,
// where it matters, the sender.
namespace platform {

inline constexpr char notificationInterface[] = "com.malvex.DistributedNotification";
inline constexpr char notificationMember[] = "Posted";
inline constexpr char notificationSignature[] = "sa{ss}";

// Empty when the environment names none.
[[nodiscard]] std::string SessionBusAddress();

using Deliver = std::function<void(const std::string& name, const std::map<std::string, std::string>& userInfo)>;

// Signals `Posted` of com.malvex.DistributedNotification on the session bus, from anybody.
class SessionBus {
 public:
  explicit SessionBus(Deliver deliver);
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;
  ~SessionBus() = default;

  [[nodiscard]] BusConnection& Connection() { return connection_; }
  [[nodiscard]] const BusConnection& Connection() const { return connection_; }

 private:
  Deliver deliver_;
  BusConnection connection_;
};

// logind on the system bus: the machine's shut-down, and the end of the session that this process belongs to. Each is
// delivered as the log-out notification, perhaps more than once.
class LoginBus {
 public:
  explicit LoginBus(Deliver deliver);
  LoginBus(const LoginBus&) = delete;
  LoginBus& operator=(const LoginBus&) = delete;
  ~LoginBus() = default;

  [[nodiscard]] BusConnection& Connection() { return connection_; }
  [[nodiscard]] const BusConnection& Connection() const { return connection_; }
  [[nodiscard]] const std::string& Session() const { return session_; }
  void DeliverLogOut() const;

 private:
  int Subscribe(sd_bus* bus);

  Deliver deliver_;
  std::string session_;
  BusConnection connection_;
};

}  // namespace platform
