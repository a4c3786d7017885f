// What the daemon and CRDaemon-http make of each other's frames.
#include "fuzz/Target.h"
#include "platform/posix/HttpFrames.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view frame = fuzz::TextOf(data, size);
  if (const auto reply = http::DecodeReply(frame)) {
    const auto again = http::DecodeReply(http::EncodeReply(*reply));
    fuzz::Require(again && again->status == reply->status && again->timedOut == reply->timedOut,
                  "a reply stays itself");
  }
  if (const auto opening = http::DecodeOpening(frame)) {
    const std::string bytes = http::EncodeOpening(*opening);
    constexpr std::size_t prefixBytes = 8;  // protocol version and byte count
    const auto again = http::DecodeOpening(std::string_view(bytes).substr(prefixBytes));
    fuzz::Require(again && again->url == opening->url && again->headerLines == opening->headerLines,
                  "an opening stays itself");
  }
  return 0;
}
