#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/Result.h"

// What the daemon and its helper CRDaemon-http say to each other over one stream socket, the helper's standard input
// and output. All numbers are 32 bits, little-endian; a frame is a byte count and that many bytes.
//
//   down  once: the protocol version, and a frame with URL and header lines, each ended by a NUL
//         then, one at a time: a frame with the body of a post
//   up    for each body a frame: the decimal status, a newline and, with status 0, the transport error. "0 timed-out"
//         as the first line tells a time-out from other errors. A helper of another version answers the first frame
//         like this, too.
//
// End of file ends the helper.
namespace http {

inline constexpr std::uint32_t protocolVersion = 1;
inline constexpr std::uint32_t bodyLimitBytes = std::uint32_t{64} << 20U;
inline constexpr std::uint32_t smallFrameLimitBytes = std::uint32_t{4}
                                                      << 10U;  // of an answer, and of URL and header lines

struct Opening {
  std::string url;
  std::vector<std::string> headerLines;
};

struct Reply {
  int status = 0;         // 0: no answer came, `error` says why
  bool timedOut = false;  // with status 0 only
  std::string error;
};

// With the protocol version before it.
[[nodiscard]] std::string EncodeOpening(const Opening& opening);
[[nodiscard]] std::optional<Opening> DecodeOpening(std::string_view frame);

// Cuts an error text that does not fit.
[[nodiscard]] std::string EncodeReply(const Reply& reply);
[[nodiscard]] std::optional<Reply> DecodeReply(std::string_view frame);

// None: for ever.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// Errors of all of these: ETIMEDOUT when the deadline passes, EPIPE when the other side is gone or closed its end,
// EMSGSIZE for a frame over the limit, else the system's.
[[nodiscard]] std::error_code SendBytes(int socket, std::string_view bytes, Deadline deadline);
[[nodiscard]] std::error_code SendFrame(int socket, std::string_view bytes, Deadline deadline);

// All that comes from a socket, which stays the caller's. It takes what is there at once, and keeps what is left.
class Receiver {
 public:
  explicit Receiver(int socket) : socket_(socket) {}

  [[nodiscard]] platform::Result<std::uint32_t> Number(Deadline deadline);
  [[nodiscard]] platform::Result<std::string> Frame(std::uint32_t limitBytes, Deadline deadline);
  [[nodiscard]] bool HasLeft() const { return !received_.empty(); }

 private:
  [[nodiscard]] platform::Result<std::string> Take(std::size_t bytes, Deadline deadline);

  int socket_;
  std::string received_;
};

}  // namespace http
