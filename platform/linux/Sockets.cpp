#include "platform/posix/Sockets.h"

#include <sys/prctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace platform {

Result<std::pair<int, int>> ConnectedSockets() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return std::error_code(errno, std::generic_category());
  }
  return std::pair(ends[0], ends[1]);
}

ssize_t SendNow(int socket, std::string_view bytes) {
  return send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool RenounceNewPrivileges() { return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0; }

}  // namespace platform
