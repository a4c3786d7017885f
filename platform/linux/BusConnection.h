#pragma once

#include <poll.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace platform {

// A connection to a D-Bus message bus that is made anew whenever it is lost, after 1 to 30 seconds, and that never
// waits for the bus: one that accepts and then stays silent costs its time-outs and nothing else. One thread.
class BusConnection {
 public:
  using Clock = std::chrono::steady_clock;
  // Asks a new connection for signals, by asynchronous calls only; a negative errno gives it up for this time.
  using Subscribe = std::function<int(sd_bus* bus)>;

  // Of the addresses (separated by ';', as D-Bus has them), those of local sockets count: looking up a host name would
  // wait. With none, this stays without a connection for good.
  BusConnection(const std::string& addresses, Subscribe subscribe);

  // What to poll for, and when to call Run even though nothing came; with no descriptor (-1) and no time, never.
  [[nodiscard]] pollfd Input() const;
  [[nodiscard]] std::optional<Clock::time_point> Deadline() const;

  // Connects if that is due, else takes in what came: 256 messages and some 50 ms at most, the rest at the next
  // call.
  void Run();

 private:
  struct Close {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };

  [[nodiscard]] bool Connect();
  [[nodiscard]] bool Process();
  void Lose();

  std::string addresses_;
  Subscribe subscribe_;
  std::unique_ptr<sd_bus, Close> bus_;
  Clock::time_point retryAt_;
  std::chrono::seconds backOff_;
};

}  // namespace platform
