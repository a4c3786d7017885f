#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <vector>

namespace reliability {

inline constexpr char endName[] = "appTerminatedNormally";

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

// Throws std::system_error for a negative errno.
void Check(int result, const char* what);

// Sends what a peer of the daemon may: act[0] says what, the rest is about the host. Returns once the bus took all of
// it, or never for a flood without a count; throws std::system_error when the bus refuses.
void Send(const std::vector<std::string>& act);

}  // namespace reliability
