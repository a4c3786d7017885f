#include "platform/posix/Sockets.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace platform {

// Between the two calls a process that another thread starts could inherit the ends. Ours are all started with nothing
// but their streams.
Result<std::pair<int, int>> ConnectedSockets() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) return std::error_code(errno, std::generic_category());
  for (const int end : ends) {
    const int yes = 1;
    fcntl(end, F_SETFD, FD_CLOEXEC);
    // Stays with the socket, so that it holds in the helper as well.
    setsockopt(end, SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
  }
  return std::pair(ends[0], ends[1]);
}

ssize_t SendNow(int socket, std::string_view bytes) { return send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT); }

// There is nothing to renounce: the helper starts no program.
bool RenounceNewPrivileges() { return true; }

}  // namespace platform
