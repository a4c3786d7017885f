#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/Result.h"

// What the systems do each in a way of its own for the daemon and its helper to talk, and for no one else.
namespace platform {

// The descriptors of two connected stream sockets, both close-on-exec and the caller's to close.
[[nodiscard]] Result<std::pair<int, int>> ConnectedSockets();

// What send() returns and puts into errno; never waits, and raises no signal when the peer is gone.
[[nodiscard]] ssize_t SendNow(int socket, std::string_view bytes);

// No program that this process becomes can have more rights than it has now. False: refused.
[[nodiscard]] bool RenounceNewPrivileges();

}  // namespace platform
