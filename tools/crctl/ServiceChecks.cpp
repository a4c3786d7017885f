#include <string_view>

#include "CRDaemon/IngestUpload.h"
#include "platform/Diagnosis.h"
#include "platform/Processes.h"
#include "support/FixedNames.h"
#include "tools/crctl/Checks.h"

namespace crctl {
namespace {

// A post is all that the helper can do. This one carries everything but an event, so that nothing can come of it.
constexpr char noEvents[] = R"({"events":[]})";

Finding CheckUrl(const std::string& used) {
  const auto named = platform::Environment(names::ingestUrlVariable);
  if (!named || named->empty()) return {"service-url", State::ok, used + " (built in)", ""};
  if (upload::IsAllowedUrl(*named)) return {"service-url", State::ok, used, ""};
  return {"service-url", State::error, std::string(names::ingestUrlVariable) + "=" + *named + " is ignored",
          "use https://, or http:// to a loopback host"};
}

bool IsProxySet() {
  for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    const auto proxy = platform::Environment(name);
    if (proxy && !proxy->empty()) return true;
  }
  return false;
}

Finding CheckName(const std::string& host) {
  const platform::Lookup lookup = platform::LookUp(host);
  if (!lookup.addresses.empty()) return {"service-name", State::ok, host + " is " + lookup.addresses.front(), ""};
  const std::string seen = host + ": " + lookup.error;
  if (IsProxySet()) return {"service-name", State::ok, seen + ", which is the proxy's to look up", ""};
  return {"service-name", State::error, seen, "check the URL, the network and the name servers"};
}

const char* AdviceOn(int status) {
  switch (status) {
    case 401:
    case 403:
      return "check that the service, or a proxy before it, lets this project in";
    case 404:
    case 405:
    case 410:
      return "check the path of the URL";
    case 407:
      return "check the user and password of the proxy";
    default:
      return "ask those who run the service; events stay queued meanwhile";
  }
}

Finding JudgeAnswer(int status) {
  const State state = JudgeStatus(status);
  return {"service-answer", state, "status " + std::to_string(status) + " to an envelope without events",
          state == State::ok ? "" : AdviceOn(status)};
}

Findings Ask(const std::string& url) {
  const platform::HttpAnswer answer = upload::ServiceClient().Post(noEvents);
  if (answer.status == 0 && IsTrustError(answer.error)) {
    return {{"service-tls", State::error, answer.error,
             "check the service's certificate, the clock, and the authorities that SSL_CERT_FILE names"}};
  }
  if (answer.status == 0) {
    return {{"service-answer", State::error, answer.error, "check the network, the proxy and the service"}};
  }
  const bool isPlain = url.starts_with("http://");
  return {{"service-tls", State::ok, isPlain ? "none, on a loopback host" : "the certificate is trusted", ""},
          JudgeAnswer(answer.status)};
}

}  // namespace

State JudgeStatus(int httpStatus) {
  constexpr int badRequest = 400;
  constexpr int unprocessable = 422;
  constexpr int tooMany = 429;
  if (httpStatus < 100) return State::error;
  // Nothing was in it, after all.
  if (httpStatus < 400 || httpStatus == badRequest || httpStatus == unprocessable) return State::ok;
  return httpStatus == tooMany ? State::warning : State::error;
}

bool IsTrustError(const std::string& transportError) {
  for (const std::string_view word : {"SSL", "TLS", "certificate"}) {
    if (transportError.find(word) != std::string::npos) return true;
  }
  return false;
}

Findings CheckService() {
  const std::string url = upload::ServiceUrl();
  Findings findings = {CheckUrl(url), CheckName(upload::HostOf(url))};
  if (findings.back().state == State::error) return findings;
  for (Finding& finding : Ask(url)) findings.push_back(std::move(finding));
  return findings;
}

}  // namespace crctl
