#include "platform/posix/HttpFrames.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <utility>

#include "platform/posix/Sockets.h"

namespace http {
namespace {

using platform::Result;
using std::chrono::steady_clock;

constexpr std::string_view timedOutMark = " timed-out";
constexpr std::size_t numberBytes = 4;
constexpr std::size_t pieceBytes = std::size_t{16} << 10U;

std::error_code LastError() { return {errno, std::generic_category()}; }

std::string EncodeNumber(std::uint32_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((number >> shift) & 0xFFU);
  return bytes;
}

std::uint32_t DecodeNumber(std::string_view bytes) {
  std::uint32_t number = 0;
  for (unsigned i = 0; i < numberBytes; ++i) number |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  return number;
}

std::string EncodeFrame(std::string_view bytes) {
  return EncodeNumber(static_cast<std::uint32_t>(bytes.size())).append(bytes);
}

// Rounded up: a poll that ends early would only be repeated.
int MillisecondsUntil(Deadline deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady_clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

std::error_code WaitFor(int socket, short event, Deadline deadline) {
  pollfd descriptor{socket, event, 0};
  while (true) {
    const int count = poll(&descriptor, 1, MillisecondsUntil(deadline));
    if (count > 0) return {};
    if (count == 0) return std::make_error_code(std::errc::timed_out);
    if (errno != EINTR) return LastError();
  }
}

bool MustWait() { return errno == EAGAIN || errno == EINTR; }

}  // namespace

std::string EncodeOpening(const Opening& opening) {
  std::string frame = opening.url + '\0';
  for (const auto& line : opening.headerLines) frame += line + '\0';
  return EncodeNumber(protocolVersion) + EncodeFrame(frame);
}

std::optional<Opening> DecodeOpening(std::string_view frame) {
  std::vector<std::string> texts;
  while (!frame.empty()) {
    const auto end = frame.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    texts.emplace_back(frame.substr(0, end));
    frame.remove_prefix(end + 1);
  }
  if (texts.empty()) return std::nullopt;
  std::string url = std::move(texts.front());
  texts.erase(texts.begin());
  return Opening{std::move(url), std::move(texts)};
}

std::string EncodeReply(const Reply& reply) {
  std::string frame = std::to_string(reply.status);
  if (reply.timedOut) frame += timedOutMark;
  frame += '\n' + reply.error;
  return frame.substr(0, smallFrameLimitBytes);
}

std::optional<Reply> DecodeReply(std::string_view frame) {
  Reply reply;
  const char* end = frame.data() + frame.size();
  const auto parsed = std::from_chars(frame.data(), end, reply.status);
  if (parsed.ec != std::errc() || reply.status < 0 || reply.status > 999) return std::nullopt;
  frame.remove_prefix(static_cast<std::size_t>(parsed.ptr - frame.data()));
  if (reply.status == 0 && frame.starts_with(timedOutMark)) {
    reply.timedOut = true;
    frame.remove_prefix(timedOutMark.size());
  }
  if (!frame.starts_with('\n')) return std::nullopt;
  reply.error = frame.substr(1);
  return reply;
}

std::error_code SendBytes(int socket, std::string_view bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const ssize_t count = platform::SendNow(socket, bytes);
    if (count < 0 && errno == ECONNRESET) return std::make_error_code(std::errc::broken_pipe);
    if (count < 0 && !MustWait()) return LastError();
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (const auto error = WaitFor(socket, POLLOUT, deadline)) {
      return error;
    }
  }
  return {};
}

std::error_code SendFrame(int socket, std::string_view bytes, Deadline deadline) {
  if (bytes.size() > bodyLimitBytes) return std::make_error_code(std::errc::message_size);
  // The count travels with what follows it, for the other side to wake up once.
  const std::string_view first = bytes.substr(0, pieceBytes);
  const auto number = EncodeNumber(static_cast<std::uint32_t>(bytes.size()));
  const auto error = SendBytes(socket, std::string(number).append(first), deadline);
  return error ? error : SendBytes(socket, bytes.substr(first.size()), deadline);
}

Result<std::string> Receiver::Take(std::size_t bytes, Deadline deadline) {
  while (received_.size() < bytes) {
    // Seldom there yet. Waiting by recv() would also be woken, for nothing, whenever the other side reads.
    if (const auto error = WaitFor(socket_, POLLIN, deadline)) return error;
    std::array<char, pieceBytes> piece;
    const ssize_t count = recv(socket_, piece.data(), piece.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && errno == ECONNRESET)) return std::errc::broken_pipe;
    if (count < 0 && !MustWait()) return LastError();
    if (count > 0) received_.append(piece.data(), static_cast<std::size_t>(count));
  }
  std::string rest = received_.substr(bytes);
  received_.resize(bytes);
  return std::exchange(received_, std::move(rest));
}

Result<std::uint32_t> Receiver::Number(Deadline deadline) {
  const auto bytes = Take(numberBytes, deadline);
  if (!bytes) return bytes.Error();
  return DecodeNumber(*bytes);
}

Result<std::string> Receiver::Frame(std::uint32_t limitBytes, Deadline deadline) {
  const auto size = Number(deadline);
  if (!size) return size.Error();
  if (*size > limitBytes) return std::errc::message_size;
  return Take(*size, deadline);
}

}  // namespace http
