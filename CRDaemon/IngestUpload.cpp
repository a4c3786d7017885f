#include "CRDaemon/IngestUpload.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <variant>

#include "CRDaemon/Ingester.h"
#include "platform/Processes.h"
#include "support/Dates.h"
#include "support/FixedNames.h"
#include "support/Json.h"
#include "support/Log.h"

namespace upload {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::pair<const char*, const char*> constants[] = {
    {"source.platform", "Mac"},
    {"event.workflow", "Lifecycle"},
    {"event.category", "DESKTOP"},
    {"event.subcategory", "Host"},
    {"event.type", "error"},
    {"event.subtype", "exit"},
    {"env.fw.name", "Crash Reporter SDK"},
};

bool IsLoopbackHost(std::string_view host) {
  if (host == "localhost" || host == "[::1]") return true;
  return host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos;
}

// Host and port, between the scheme and the path.
std::string_view AuthorityOf(std::string_view url, std::string_view scheme) {
  url.remove_prefix(scheme.size());
  return url.substr(0, url.find_first_of("/?#"));
}

std::string_view WithoutPort(std::string_view authority) {
  const std::size_t colon = authority.rfind(':');
  const std::size_t bracket = authority.rfind(']');
  const bool hasPort = colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket);
  return hasPort ? authority.substr(0, colon) : authority;
}

}  // namespace

bool IsAllowedUrl(std::string_view url) {
  constexpr std::string_view secure = "https://";
  constexpr std::string_view plain = "http://";
  const auto isOdd = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\\' || c == '\x7f'; };
  if (std::any_of(url.begin(), url.end(), isOdd)) return false;
  if (url.starts_with(secure)) return !AuthorityOf(url, secure).empty();
  if (!url.starts_with(plain)) return false;
  // "localhost:1@elsewhere" names a user, not a host.
  const std::string_view authority = AuthorityOf(url, plain);
  return authority.find('@') == std::string_view::npos && IsLoopbackHost(WithoutPort(authority));
}

std::string HostOf(std::string_view url) {
  const std::size_t scheme = url.find("://");
  if (scheme == std::string_view::npos) return {};
  const std::string_view authority = AuthorityOf(url, url.substr(0, scheme + 3));
  std::string_view host = WithoutPort(authority.substr(authority.rfind('@') + 1));
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return std::string(host);
}

std::string ServiceUrl() {
  const auto url = platform::Environment(names::ingestUrlVariable);
  if (!url || url->empty()) return CRDAEMON_INGEST_URL;
  if (IsAllowedUrl(*url)) return *url;
  LogError(std::string(names::ingestUrlVariable) +
           " is ignored, neither https:// nor http:// to a loopback host: " + *url);
  return CRDAEMON_INGEST_URL;
}

platform::HttpClient ServiceClient() {
  return {ServiceUrl(), {"content-type: application/json", std::string("x-api-key: ") + names::ingestProject}};
}

Value Envelope(Dictionary event, platform::Time now) {
  Dictionary data;
  for (const auto& [key, value] : constants) data.Set(key, Value(value));
  for (auto& [key, value] : std::move(event).TakeMembers()) data.Set(std::move(key), std::move(value));
  Dictionary envelope = {
      {"project", names::ingestProject},
      {"environment", "prod"},
      {"time", dates::FormatEventTime(now)},
      {"ingesttype", "quanta"},
  };
  envelope.Set("data", Value(std::move(data)));
  Array events;
  events.emplace_back(std::move(envelope));
  Dictionary body;
  body.Set("events", Value(std::move(events)));
  return {std::move(body)};
}

}  // namespace upload

bool postToIngest(platform::Dictionary event, UploadRun& run, const std::function<void()>& meanwhile) {
  auto written = json::Write(upload::Envelope(std::move(event), platform::Now()));
  std::string body;
  if (const auto* error = std::get_if<json::Error>(&written)) {
    LogError("failed to serialize json with error: " + error->description);
  } else {
    body = std::move(std::get<std::string>(written));
  }
  const platform::HttpAnswer answer = run.http.Post(body, meanwhile);
  if (answer.status == 0) {
    LogError("failed to send HTTP request with error: " + answer.error);
    return false;
  }
  run.busyAnswers = answer.status >= 500 || answer.status == 429 ? run.busyAnswers + 1 : 0;
  if (answer.status >= 400) LogError("the ingest service answered with status " + std::to_string(answer.status));
  return answer.status >= 100 && answer.status < 400;
}
