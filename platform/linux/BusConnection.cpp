#include "platform/linux/BusConnection.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

namespace platform {
namespace {

constexpr std::chrono::seconds firstBackOff{1};
constexpr std::chrono::seconds lastBackOff{30};
constexpr int messagesAPass = 256;
// A message may be as large as 128 MiB: so many of them would keep the host's end waiting.
constexpr std::chrono::milliseconds passLimit{50};

std::string LocalAddresses(std::string_view addresses) {
  std::string local;
  while (!addresses.empty()) {
    const std::string_view address = addresses.substr(0, addresses.find(';'));
    addresses.remove_prefix(std::min(address.size() + 1, addresses.size()));
    if (!address.starts_with("unix:")) continue;
    if (!local.empty()) local += ';';
    local += address;
  }
  return local;
}

// A peer that calls us for ever and takes no answer would have the answers pile up here, to 100 MB and more: while one
// waits to be sent, further calls get none.
int OnMessage(sd_bus_message* message, void*, sd_bus_error*) noexcept {
  const bool isCall = sd_bus_message_is_method_call(message, nullptr, nullptr) > 0;
  const bool isBehind = (sd_bus_get_events(sd_bus_message_get_bus(message)) & POLLOUT) != 0;
  return isCall && isBehind ? 1 : 0;
}

}  // namespace

BusConnection::BusConnection(const std::string& addresses, Subscribe subscribe)
    : addresses_(LocalAddresses(addresses)),
      subscribe_(std::move(subscribe)),
      retryAt_(Clock::now()),
      backOff_(firstBackOff) {}

pollfd BusConnection::Input() const {
  if (!bus_) return {-1, 0, 0};
  return {sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0};
}

std::optional<BusConnection::Clock::time_point> BusConnection::Deadline() const {
  if (addresses_.empty()) return std::nullopt;
  if (!bus_) return retryAt_;
  std::uint64_t microseconds = UINT64_MAX;
  if (sd_bus_get_timeout(bus_.get(), &microseconds) < 0 || microseconds == UINT64_MAX) return std::nullopt;
  // Both clocks count from the same moment. Later than this is never.
  constexpr std::uint64_t latest =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::duration::max()).count();
  return Clock::time_point(std::chrono::microseconds(std::min(microseconds, latest)));
}

void BusConnection::Run() {
  if (addresses_.empty() || (!bus_ && Clock::now() < retryAt_)) return;
  if ((!bus_ && !Connect()) || !Process()) Lose();
}

bool BusConnection::Connect() {
  sd_bus* bus = nullptr;
  if (sd_bus_new(&bus) < 0) return false;
  bus_.reset(bus);
  return sd_bus_add_filter(bus, nullptr, OnMessage, nullptr) >= 0 && sd_bus_set_address(bus, addresses_.c_str()) >= 0 &&
         sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_negotiate_fds(bus, 0) >= 0 && sd_bus_start(bus) >= 0 &&
         subscribe_(bus) >= 0;
}

bool BusConnection::Process() {
  const auto end = Clock::now() + passLimit;
  for (int i = 0; i < messagesAPass && (i == 0 || Clock::now() < end); ++i) {
    const int result = sd_bus_process(bus_.get(), nullptr);
    if (result < 0) return false;
    if (result == 0) break;
  }
  if (sd_bus_is_ready(bus_.get()) > 0) backOff_ = firstBackOff;
  return sd_bus_is_open(bus_.get()) > 0 && sd_bus_get_events(bus_.get()) >= 0;
}

void BusConnection::Lose() {
  bus_.reset();
  retryAt_ = Clock::now() + backOff_;
  backOff_ = std::min(2 * backOff_, lastBackOff);
}

}  // namespace platform
