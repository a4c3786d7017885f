#include "tools/crctl/IngestService.h"

#include <httplib.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

#include "support/Dates.h"
#include "support/Json.h"
#include "tools/crctl/IngestPage.h"
#include "tools/crctl/PostCheck.h"

namespace ingest {
namespace {

using namespace std::chrono_literals;
using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr std::size_t postLimitBytes = std::size_t{4} << 20U;
// Of one answer to a reader; it asks again for the rest.
constexpr std::size_t sliceBytes = std::size_t{8} << 20U;
// Each live stream holds a thread, so that there are threads that none of them can take.
constexpr int mostStreams = 16;
constexpr std::size_t threads = 32;
// So that a stream whose reader is gone is noticed.
constexpr auto breath = 5s;

enum Status { ok = 200, badRequest = 400, forbidden = 403, notFound = 404, notAllowed = 405, tooLarge = 413 };
constexpr int refused = 422;
constexpr int unavailable = 503;

constexpr char eventType[] = "application/json";

std::string Text(const Value& value) { return std::get<std::string>(json::Write(value)); }

httplib::Headers DefaultHeaders() {
  return {{"Content-Security-Policy",
           "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
           "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
          {"X-Content-Type-Options", "nosniff"},
          {"Referrer-Policy", "no-referrer"},
          {"Cache-Control", "no-store"}};
}

bool IsLoopback(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  const bool hasPort = colon != std::string_view::npos && !host.ends_with(']');
  if (hasPort) host = host.substr(0, colon);
  if (host == "localhost" || host == "[::1]") return true;
  return host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos;
}

std::optional<std::uint64_t> Number(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// The whole of the body, of which no more is kept than shows that it is too large.
std::string BodyOf(const httplib::ContentReader& reader) {
  std::string body;
  reader([&body](const char* piece, std::size_t size) {
    body.append(piece, std::min(size, postLimitBytes + 1 - body.size()));
    return true;
  });
  return body;
}

std::string TlsError() {
  char reason[256] = "unknown";
  if (const unsigned long code = ERR_get_error()) ERR_error_string_n(code, reason, sizeof reason);
  return reason;
}

// Why a file cannot be read. Links are welcome: certificates often are some.
std::optional<std::string> Unreadable(const std::string& path) {
  if (access(path.c_str(), R_OK) == 0) return std::nullopt;
  return path + ": " + std::generic_category().message(errno);
}

}  // namespace

struct IngestService::Body {
  Body(EventStore& eventStore, std::optional<Certificate> itsCertificate, Listener itsListener)
      : store(eventStore), certificate(std::move(itsCertificate)), listener(std::move(itsListener)) {}

  std::optional<std::string> MakeServer();
  void AddHandlers();

  void Receive(const httplib::Request& request, const httplib::ContentReader& reader, httplib::Response& response);
  // The status of the answer to it; waits as told.
  int Judge(bool isSound);
  void Show(const httplib::Request& request, httplib::Response& response);
  void List(const httplib::Request& request, httplib::Response& response) const;
  void Stream(const httplib::Request& request, httplib::Response& response);
  // False when the stream is over: the reader is gone, or the service ends.
  bool Send(std::uint64_t& sent, std::chrono::steady_clock::time_point& lastSent, httplib::DataSink& sink) const;

  EventStore& store;
  const std::optional<Certificate> certificate;
  const Listener listener;
  const PostCheck check;
  std::unique_ptr<httplib::Server> server;
  std::thread thread;
  int port = 0;
  std::atomic<int> streams{0};
  std::atomic<bool> isEnding{false};

  std::mutex mutex;
  std::condition_variable ending;
  std::chrono::milliseconds delay{0};
  std::vector<int> statuses{ok};
  std::mutex listenerMutex;
};

std::optional<std::string> IngestService::Body::MakeServer() {
  if (!certificate) {
    server = std::make_unique<httplib::Server>();
    return std::nullopt;
  }
  for (const std::string& path : {certificate->path, certificate->keyPath}) {
    if (auto why = Unreadable(path)) return why;
  }
  ERR_clear_error();
  server = std::make_unique<httplib::SSLServer>(certificate->path.c_str(), certificate->keyPath.c_str());
  if (server->is_valid()) return std::nullopt;
  return certificate->path + " and " + certificate->keyPath + " are no certificate and its key: " + TlsError();
}

void IngestService::Body::AddHandlers() {
  server->set_default_headers(DefaultHeaders());
  // One request a connection: an idle one would hold a thread, and an unread body would be taken for the next request.
  server->set_keep_alive_max_count(1);
  server->new_task_queue = [] { return new httplib::ThreadPool(threads); };
  // Not the library's own choice, under which two services can share a port.
  server->set_socket_options([](int socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server->set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
    if (IsLoopback(request.get_header_value("Host"))) return httplib::Server::HandlerResponse::Unhandled;
    response.status = forbidden;
    response.set_content("This service answers to loopback names only.\n", "text/plain");
    return httplib::Server::HandlerResponse::Handled;
  });
  const auto receive = [this](const httplib::Request& request, httplib::Response& response,
                              const httplib::ContentReader& reader) { Receive(request, reader, response); };
  server->Post(".*", receive).Put(".*", receive).Patch(".*", receive).Delete(".*", receive);
  server->Get(".*", [this](const httplib::Request& request, httplib::Response& response) { Show(request, response); });
}

void IngestService::Body::Receive(const httplib::Request& request, const httplib::ContentReader& reader,
                                  httplib::Response& response) {
  Post post{.method = request.method,
            .path = request.path,
            .contentType = request.get_header_value("content-type"),
            .apiKey = request.get_header_value("x-api-key"),
            .body = BodyOf(reader)};
  const bool isTooLarge = post.body.size() > postLimitBytes;
  CheckedPost checked;
  if (isTooLarge) {
    checked.problems.push_back("body: is larger than " + std::to_string(postLimitBytes) + " bytes");
  } else {
    checked = check.Check(post);
  }
  response.status = Judge(checked.problems.empty());
  if (isTooLarge) response.status = tooLarge;

  Array problems(checked.problems.begin(), checked.problems.end());
  const Dictionary record = {{"received", dates::FormatLogTime(platform::Now())},
                             {"status", Value(std::int64_t{response.status})},
                             {"problems", Value(problems)},
                             {"app", checked.app},
                             {"kind", checked.kind},
                             {"event", Value(std::move(checked.event))}};
  if (const std::error_code error = store.Append(Text(Value(record)))) {
    // Taken is what is kept.
    response.status = unavailable;
    problems.emplace_back("events file: " + error.message());
  } else if (listener) {
    const std::lock_guard lock(listenerMutex);
    listener(record);
  }
  if (problems.empty()) return;
  response.set_content(Text(Value(Dictionary{{"problems", Value(std::move(problems))}})), eventType);
}

int IngestService::Body::Judge(bool isSound) {
  std::unique_lock lock(mutex);
  ending.wait_for(lock, delay, [this] { return isEnding.load(); });
  const int status = isSound ? statuses.front() : refused;
  if (statuses.size() > 1) statuses.erase(statuses.begin());
  return status;
}

void IngestService::Body::Show(const httplib::Request& request, httplib::Response& response) {
  if (request.path == "/api/events") return List(request, response);
  if (request.path == "/api/live") return Stream(request, response);
  if (const auto file = PageFile(request.path)) {
    response.set_content(file->content.data(), file->content.size(), file->type);
  } else if (request.path == "/ingest") {
    response.status = notAllowed;
    response.set_header("Allow", "POST");
    response.set_content("Events are posted here.\n", "text/plain");
  } else {
    response.status = notFound;
  }
}

void IngestService::Body::List(const httplib::Request& request, httplib::Response& response) const {
  const auto after = request.has_param("after") ? Number(request.get_param_value("after")) : 0;
  if (!after) {
    response.status = badRequest;
    response.set_content("\"after\" is the id of an event.\n", "text/plain");
    return;
  }
  const std::uint64_t last = store.Last();
  std::string events;
  for (std::uint64_t id = *after; id < last && events.size() < sliceBytes;) {
    const auto event = store.Read(++id);
    if (!event) {
      response.status = unavailable;
      response.set_content("The events file was changed by somebody else.\n", "text/plain");
      return;
    }
    events.append(events.empty() ? "" : ",").append(*event);
  }
  response.set_content(R"({"events":[)" + events + R"(],"last":)" + std::to_string(last) + "}", eventType);
}

void IngestService::Body::Stream(const httplib::Request& request, httplib::Response& response) {
  if (++streams > mostStreams) {
    --streams;
    response.status = unavailable;
    response.set_content("Too many live streams.\n", "text/plain");
    return;
  }
  const std::uint64_t last = store.Last();
  // An id of another life of the service says nothing.
  const std::uint64_t seen = Number(request.get_header_value("Last-Event-ID")).value_or(last);
  response.set_chunked_content_provider(
      "text/event-stream",
      [this, sent = std::min(seen, last), lastSent = std::chrono::steady_clock::now()](
          std::size_t, httplib::DataSink& sink) mutable { return Send(sent, lastSent, sink); },
      [this](bool) { --streams; });
}

bool IngestService::Body::Send(std::uint64_t& sent, std::chrono::steady_clock::time_point& lastSent,
                               httplib::DataSink& sink) const {
  const std::uint64_t last = store.AwaitNewerThan(sent, 1s);
  // Cut, as by the end of the process: readers come back either way.
  if (isEnding) return false;
  const auto now = std::chrono::steady_clock::now();
  std::string text;
  for (; sent < last && text.size() < sliceBytes; ++sent) {
    const auto event = store.Read(sent + 1);
    if (!event) return false;
    text += "id: " + std::to_string(sent + 1) + "\ndata: " + *event + "\n\n";
  }
  if (text.empty() && now - lastSent >= breath) text = ":\n\n";
  if (text.empty()) return true;
  lastSent = now;
  return sink.write(text.data(), text.size());
}

IngestService::IngestService(EventStore& store, const std::optional<Certificate>& certificate, Listener listener)
    : body_(std::make_unique<Body>(store, certificate, std::move(listener))) {}

IngestService::~IngestService() {
  body_->isEnding = true;
  {
    const std::lock_guard lock(body_->mutex);
    body_->ending.notify_all();
  }
  body_->store.Close();
  if (!body_->thread.joinable()) return;
  body_->server->stop();
  body_->thread.join();
}

std::optional<std::string> IngestService::Start(int port) {
  if (auto why = body_->MakeServer()) return why;
  body_->AddHandlers();
  errno = 0;
  const bool isBound = port == 0 ? (body_->port = body_->server->bind_to_any_port("127.0.0.1")) > 0
                                 : body_->server->bind_to_port("127.0.0.1", body_->port = port);
  if (!isBound) {
    return "cannot listen on port " + std::to_string(port) + ": " +
           (errno == 0 ? "unknown error" : std::generic_category().message(errno));
  }
  body_->thread = std::thread([this] { body_->server->listen_after_bind(); });
  // Before that, it could not be stopped.
  while (!body_->server->is_running()) std::this_thread::sleep_for(1ms);
  return std::nullopt;
}

std::string IngestService::Origin() const {
  return (body_->certificate ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(body_->port);
}

void IngestService::AnswerWith(std::vector<int> statuses) {
  const std::lock_guard lock(body_->mutex);
  if (!statuses.empty()) body_->statuses = std::move(statuses);
}

void IngestService::AnswerAfter(std::chrono::milliseconds delay) {
  const std::lock_guard lock(body_->mutex);
  body_->delay = delay;
}

}  // namespace ingest
