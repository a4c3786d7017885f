// What a session bus sends once the connection stands: messages, or anything else. What is delivered keeps to the
// limits.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/Target.h"
#include "platform/linux/SessionBus.h"

namespace {

constexpr std::size_t textLimitBytes = 4096;
constexpr std::size_t entriesLimit = 256;
// Fits into the socket's buffer, so that one thread can be both ends.
constexpr std::size_t inputLimitBytes = std::size_t{64} << 10U;

// What a bus answers to the authentication of sd-bus.
constexpr std::string_view welcome = "DATA\r\nOK 00112233445566778899aabbccddeeff\r\n";

// The bus, under an abstract name of this process.
class Listener {
 public:
  Listener() : name_("crd-fuzz-" + std::to_string(getpid())) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name_.copy(address.sun_path + 1, sizeof(address.sun_path) - 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name_.size());
    fuzz::Require(bind(socket_, reinterpret_cast<const sockaddr*>(&address), length) == 0 && listen(socket_, 1) == 0,
                  "the bus listens");
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:abstract=" + name_).c_str(), 1);
  }

  [[nodiscard]] int Accept() const { return accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC); }

 private:
  std::string name_;
  int socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

void CheckNotification(const std::string& name, const std::map<std::string, std::string>& userInfo) {
  fuzz::Require(name.size() <= textLimitBytes, "the name is short");
  fuzz::Require(userInfo.size() <= entriesLimit, "the entries are few");
  for (const auto& [key, value] : userInfo) {
    fuzz::Require(std::max(key.size(), value.size()) <= textLimitBytes, "each text is short");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Listener listener;
  platform::SessionBus bus(CheckNotification);
  bus.Connection().Run();
  const int peer = listener.Accept();
  const std::string bytes = std::string(welcome).append(fuzz::TextOf(data, std::min(size, inputLimitBytes)));
  fuzz::Require(write(peer, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "the bus speaks");
  shutdown(peer, SHUT_WR);
  constexpr int enoughPasses = 10'000;
  int passes = 0;
  while (bus.Connection().Input().fd >= 0 && passes < enoughPasses) {
    bus.Connection().Run();
    ++passes;
  }
  fuzz::Require(passes < enoughPasses, "a bus that is gone is noticed");
  close(peer);
  return 0;
}
