#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/HttpClient.h"
#include "platform/PropertyList.h"

// The ingest protocol: one event, one envelope, one POST.
namespace upload {

// Whether events may go there: https:// anywhere, http:// to a loopback host only.
[[nodiscard]] bool IsAllowedUrl(std::string_view url);

// Its host, without user, port and brackets; empty when it names none.
[[nodiscard]] std::string HostOf(std::string_view url);

// The one of the environment where it is set and allowed, else the built-in one.
[[nodiscard]] std::string ServiceUrl();

// A client that speaks to the service with the protocol's header lines.
[[nodiscard]] platform::HttpClient ServiceClient();

// The body of a request: the constant attributes, over them the event's own.
[[nodiscard]] platform::Value Envelope(platform::Dictionary event, platform::Time now);

}  // namespace upload

struct UploadRun;

// True when the service accepted the event, that is with any status from 100 to 399. `meanwhile` is for
// HttpClient::Post.
[[nodiscard]] bool postToIngest(platform::Dictionary event, UploadRun& run,
                                const std::function<void()>& meanwhile = {});
