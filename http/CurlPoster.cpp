#include "http/CurlPoster.h"

#include <poll.h>

#include <cstdlib>

namespace {

constexpr long connectLimitMilliseconds = 60'000;
constexpr long silenceLimitSeconds = 60;
constexpr long postLimitMilliseconds = 120'000;
constexpr std::size_t answerLimitBytes = std::size_t{1} << 20U;

// libcurl reports progress a dozen times for a post that takes no time, and once a second while it waits.
constexpr auto lookPause = std::chrono::milliseconds(100);

constexpr char systemCertificates[] = "/etc/ssl/certs/ca-certificates.crt";
constexpr char loopbackHosts[] = "localhost,127.0.0.0/8,::1";

const char* Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

// The hosts that need no proxy, those that the environment names included.
std::string DirectHosts() {
  const char* named = Variable("no_proxy") != nullptr ? Variable("no_proxy") : Variable("NO_PROXY");
  if (named == nullptr) return loopbackHosts;
  return std::string_view(named) == "*" ? named : std::string(named) + "," + loopbackHosts;
}

curl_slist* Lines(const std::vector<std::string>& lines) {
  // No line of ours, but one that libcurl would add: the body is sent at once.
  curl_slist* list = curl_slist_append(nullptr, "Expect:");
  for (const auto& line : lines) {
    if (curl_slist* longer = curl_slist_append(list, line.c_str())) list = longer;
  }
  return list;
}

}  // namespace

CurlPoster::CurlPoster(const http::Opening& opening, int peerSocket)
    : headers_(Lines(opening.headerLines)), easy_(curl_easy_init()), peerSocket_(peerSocket) {
  if (!easy_ || !headers_) std::abort();  // no memory: the daemon sees this program end
  SetUp(opening.url);
  SetTrust();
}

void CurlPoster::SetUp(const std::string& url) {
  CURL* easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_NOPROXY, DirectHosts().c_str());
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connectLimitMilliseconds);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, silenceLimitSeconds);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, postLimitMilliseconds);
#if CURL_AT_LEAST_VERSION(7, 87, 0)
  // After a time-out, do not wait for a name server that does not answer: the daemon would end us before we said why.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
#endif
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlPoster::Receive);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlPoster::ReceiveHeaderLine);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &CurlPoster::Progress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
}

void CurlPoster::SetTrust() {
  CURL* easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  // With a folder of certificates libcurl caches none, and each connection costs tens of milliseconds.
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  if (const char* bundle = Variable("SSL_CERT_FILE")) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, bundle);
  } else if (curl_version_info(CURLVERSION_NOW)->cainfo == nullptr) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, systemCertificates);
  }
}

http::Reply CurlPoster::Post(std::string_view body) {
  receivedBytes_ = 0;
  headEnded_ = false;
  error_[0] = '\0';
  curl_easy_setopt(easy_.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  // Null would mean that the body is to be read from standard input.
  curl_easy_setopt(easy_.get(), CURLOPT_POSTFIELDS, body.empty() ? "" : body.data());
  // A connection on which a request broke off may still hold a piece of it, and would send that in place of the next
  // one.
  curl_easy_setopt(easy_.get(), CURLOPT_FRESH_CONNECT, failed_ ? 1L : 0L);
  http::Reply reply = Judge(curl_easy_perform(easy_.get()));
  failed_ = reply.status == 0;
  return reply;
}

http::Reply CurlPoster::Judge(CURLcode result) const {
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  // A service that closes after a status of 1xx meant it as its answer. An answer that breaks off is none.
  const bool complete = headEnded_ && (result == CURLE_OK || result == CURLE_GOT_NOTHING);
  if (status != 0 && (complete || receivedBytes_ > answerLimitBytes)) return {static_cast<int>(status), false, {}};
  return {0, result == CURLE_OPERATION_TIMEDOUT,
          error_[0] != '\0'    ? error_
          : result == CURLE_OK ? "the answer broke off within its header lines"
                               : curl_easy_strerror(result)};
}

std::size_t CurlPoster::Receive(char*, std::size_t size, std::size_t count, void* self) noexcept {
  auto& receivedBytes = static_cast<CurlPoster*>(self)->receivedBytes_;
  receivedBytes += size * count;
  return receivedBytes > answerLimitBytes ? 0 : size * count;
}

// libcurl takes a header that breaks off for a whole one, so its end is looked for: an empty line. Lines that come
// after the body change nothing.
std::size_t CurlPoster::ReceiveHeaderLine(char* bytes, std::size_t size, std::size_t count, void* self) noexcept {
  const std::string_view line(bytes, size * count);
  bool& headEnded = static_cast<CurlPoster*>(self)->headEnded_;
  if (line.starts_with("HTTP/")) headEnded = false;
  if (line == "\r\n" || line == "\n") headEnded = true;
  return line.size();
}

int CurlPoster::Progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept {
  auto& poster = *static_cast<CurlPoster*>(self);
  const auto now = std::chrono::steady_clock::now();
  if (now < poster.nextLook_) return 0;
  poster.nextLook_ = now + lookPause;
  pollfd peer{poster.peerSocket_, 0, 0};
  return poll(&peer, 1, 0) > 0 ? 1 : 0;
}
