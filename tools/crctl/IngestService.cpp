#include "tools/crctl/IngestService.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <charconv>
#include <mutex>
#include <system_error>
#include <utility>
#include <variant>

#include "support/Dates.h"
#include "support/Json.h"
#include "support/Text.h"
#include "tools/crctl/IngestPage.h"
#include "tools/crctl/PostCheck.h"

namespace ingest {
namespace {

namespace net = boost::asio;
using namespace std::chrono_literals;
using platform::Array;
using platform::Dictionary;
using platform::Value;
using Clock = std::chrono::steady_clock;

// The size of one answer to a reader, who asks again for the rest.
constexpr std::size_t sliceBytes = std::size_t{8} << 20U;
constexpr int mostStreams = 16;
// A stream without events sends something this often, to notice that its reader is gone.
constexpr std::chrono::milliseconds keepAliveInterval = 5s;

enum Status { ok = 200, badRequest = 400, forbidden = 403, notFound = 404, notAllowed = 405, tooLarge = 413 };
constexpr int refused = 422;
constexpr int unavailable = 503;

constexpr char eventType[] = "application/json";

std::string Text(const Value& value) { return std::get<std::string>(json::Write(value)); }

bool IsLoopback(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  const bool hasPort = colon != std::string_view::npos && !host.ends_with(']');
  if (hasPort) host = host.substr(0, colon);
  if (host == "localhost" || host == "[::1]") return true;
  return host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos;
}

std::optional<std::uint64_t> Number(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// The member "after" of a query; 0 when there is none.
std::optional<std::uint64_t> After(std::string_view query) {
  constexpr std::string_view key = "after=";
  for (const std::string_view member : text::Split(query, '&')) {
    if (member.starts_with(key)) return Number(member.substr(key.size()));
  }
  return 0;
}

bool IsRead(const Request& request) { return request.method == "GET" || request.method == "HEAD"; }

// Gathers small texts, so that each send is worth its while.
class Pieces {
 public:
  explicit Pieces(Exchange& exchange) : exchange_(exchange) {}
  Task<void> Add(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= enoughBytes) co_await Flush();
  }
  Task<void> Flush() {
    if (!pending_.empty()) co_await exchange_.Send(pending_);
    pending_.clear();
  }

 private:
  static constexpr std::size_t enoughBytes = std::size_t{64} << 10U;
  Exchange& exchange_;
  std::string pending_;
};

}  // namespace

struct IngestService::Body {
  Body(EventStore& eventStore, std::optional<Certificate> itsCertificate, Listener itsListener, const Limits& limits)
      : store(eventStore),
        certificate(std::move(itsCertificate)),
        listener(std::move(itsListener)),
        server(
            limits, [this](const Request& request) { return Refusal(request); },
            [this](Exchange& exchange) { return Handle(exchange); }) {}

  [[nodiscard]] std::string Scheme() const { return certificate ? "https://" : "http://"; }
  // Why a request is not even looked at.
  [[nodiscard]] std::optional<Reply> Refusal(const Request& request) const;
  Task<void> Handle(Exchange& exchange);
  Task<Reply> Receive(Request& request);
  // Has `work` done by the one thread that checks and keeps posts, while the server's serves others.
  template <class Work>
  Task<std::invoke_result_t<Work>> Do(Work work);
  [[nodiscard]] Reply Keep(int status, CheckedPost checked) const;
  Task<void> WaitForDelay();
  int NextStatus(bool isSound);
  Task<void> List(Exchange& exchange);
  Task<void> Stream(Exchange& exchange);
  // One event; false when it cannot be read any more.
  Task<bool> SendEvent(Pieces& pieces, std::uint64_t id, std::string_view before, std::string_view behind);

  EventStore& store;
  const std::optional<Certificate> certificate;
  const Listener listener;
  const PostCheck check;
  int streams = 0;  // the server's thread alone

  std::mutex mutex;
  std::chrono::milliseconds delay{0};
  std::vector<int> statuses{ok};

  net::thread_pool worker{1};
  HttpServer server;  // ends first: its requests use all that stands above
};

std::optional<Reply> IngestService::Body::Refusal(const Request& request) const {
  const std::string host = request.Field("Host");
  if (!IsLoopback(host)) {
    return Reply(forbidden, "This service answers to loopback names only.\n");
  }
  // A link from elsewhere may lead to the page.
  if (IsRead(request) && PageFile(request.path)) return std::nullopt;
  const std::string origin = request.Field("Origin");
  if ((origin.empty() || origin == Scheme() + host) && request.Field("Sec-Fetch-Site") != "cross-site") {
    return std::nullopt;
  }
  return Reply(forbidden, "This service answers to no page but its own.\n");
}

Task<void> IngestService::Body::Handle(Exchange& exchange) {
  Request& request = exchange.request;
  if (!IsRead(request)) {
    co_await exchange.Answer(co_await Receive(request));
  } else if (request.path == "/api/events") {
    co_await List(exchange);
  } else if (request.path == "/api/live") {
    co_await Stream(exchange);
  } else if (const auto file = PageFile(request.path)) {
    co_await exchange.Answer(Reply(ok, std::string(file->content), file->type));
  } else if (request.path == "/ingest") {
    Reply reply(notAllowed, "Events are posted here.\n");
    reply.allow = "POST";
    co_await exchange.Answer(std::move(reply));
  } else {
    co_await exchange.Answer(Reply(notFound));
  }
}

template <class Work>
Task<std::invoke_result_t<Work>> IngestService::Body::Do(Work work) {
  const auto task = [&work]() -> Task<std::invoke_result_t<Work>> { co_return work(); };
  co_return co_await net::co_spawn(worker, task, net::use_awaitable);
}

Task<Reply> IngestService::Body::Receive(Request& request) {
  CheckedPost checked;
  if (request.isTooLarge) {
    checked.problems.push_back("body: is larger than " + std::to_string(bodyLimitBytes) + " bytes");
  } else {
    checked = co_await Do([&] {
      return check.Check({.method = request.method,
                          .path = request.path,
                          .contentType = request.Field("content-type"),
                          .apiKey = request.Field("x-api-key"),
                          .body = std::move(request.body)});
    });
  }
  co_await WaitForDelay();
  const int status = NextStatus(checked.problems.empty());
  Reply reply = co_await Do([&] { return Keep(request.isTooLarge ? tooLarge : status, std::move(checked)); });
  server.WakeAll();
  co_return reply;
}

Reply IngestService::Body::Keep(int status, CheckedPost checked) const {
  Array problems(checked.problems.begin(), checked.problems.end());
  const Dictionary record = {{"received", dates::FormatLogTime(platform::Now())},
                             {"status", Value(std::int64_t{status})},
                             {"problems", Value(problems)},
                             {"app", checked.app},
                             {"kind", checked.kind},
                             {"event", Value(std::move(checked.event))}};
  if (const std::error_code error = store.Append(Text(Value(record)))) {
    // Taken is what is kept.
    status = unavailable;
    problems.emplace_back("events file: " + error.message());
  } else if (listener) {
    listener(record);
  }
  if (problems.empty()) return Reply(status);
  return Reply(status, Text(Value(Dictionary{{"problems", Value(std::move(problems))}})), eventType);
}

Task<void> IngestService::Body::WaitForDelay() {
  Clock::time_point end = Clock::now();
  {
    const std::lock_guard lock(mutex);
    end += delay;
  }
  for (auto now = Clock::now(); now < end && !server.IsEnding(); now = Clock::now()) {
    co_await server.Sleep(std::chrono::ceil<std::chrono::milliseconds>(end - now));
  }
}

int IngestService::Body::NextStatus(bool isSound) {
  const std::lock_guard lock(mutex);
  const int status = isSound ? statuses.front() : refused;
  if (statuses.size() > 1) statuses.erase(statuses.begin());
  return status;
}

Task<bool> IngestService::Body::SendEvent(Pieces& pieces, std::uint64_t id, std::string_view before,
                                          std::string_view behind) {
  for (std::size_t number = 0;; ++number) {
    const auto piece = store.Read(id, number);
    if (!piece) co_return false;
    if (number == 0) co_await pieces.Add(before);
    if (piece->empty()) break;
    co_await pieces.Add(*piece);
  }
  co_await pieces.Add(behind);
  co_return true;
}

Task<void> IngestService::Body::List(Exchange& exchange) {
  const auto after = After(exchange.request.query);
  if (!after) {
    co_await exchange.Answer(Reply(badRequest, "\"after\" is the id of an event.\n"));
    co_return;
  }
  const std::uint64_t last = store.Last();
  std::uint64_t id = std::max(*after + 1, store.First());
  if (id <= last && !store.Read(id)) {
    co_await exchange.Answer(Reply(unavailable, "The events file was changed by somebody else.\n"));
    co_return;
  }
  co_await exchange.Begin(eventType);
  Pieces pieces(exchange);
  co_await pieces.Add(R"({"events":[)");
  std::size_t bytes = 0;
  for (std::string_view comma; id <= last && bytes < sliceBytes; ++id, comma = ",") {
    bytes += store.Size(id);
    // Cut: what was begun cannot be made whole.
    if (!co_await SendEvent(pieces, id, comma, "")) co_return;
  }
  co_await pieces.Add(R"(],"last":)" + std::to_string(last) + "}");
  co_await pieces.Flush();
  co_await exchange.End();
}

Task<void> IngestService::Body::Stream(Exchange& exchange) {
  if (streams == mostStreams) {
    co_await exchange.Answer(Reply(unavailable, "Too many live streams.\n"));
    co_return;
  }
  ++streams;
  const auto release = [](int* number) { --*number; };
  const std::unique_ptr<int, decltype(release)> hold(&streams, release);
  exchange.BecomeLive();
  const std::uint64_t last = store.Last();
  // An id of another life of the service says nothing.
  std::uint64_t sent = std::min(Number(exchange.request.Field("Last-Event-ID")).value_or(last), last);
  co_await exchange.Begin("text/event-stream");
  Pieces pieces(exchange);
  auto lastSent = Clock::now();
  // Cut at the end, as by the end of the process: readers come back either way.
  while (!server.IsEnding()) {
    for (sent = std::max(sent, store.First() - 1); sent < store.Last(); ++sent, lastSent = Clock::now()) {
      const std::string before = "id: " + std::to_string(sent + 1) + "\ndata: ";
      if (!co_await SendEvent(pieces, sent + 1, before, "\n\n")) co_return;
    }
    if (Clock::now() - lastSent >= keepAliveInterval) {
      co_await pieces.Add(":\n\n");
      lastSent = Clock::now();
    }
    co_await pieces.Flush();
    if (sent == store.Last()) co_await server.Sleep(keepAliveInterval);
  }
}

IngestService::IngestService(EventStore& store, const std::optional<Certificate>& certificate, Listener listener,
                             const Limits& limits)
    : body_(std::make_unique<Body>(store, certificate, std::move(listener), limits)) {}

IngestService::~IngestService() = default;

std::optional<std::string> IngestService::Start(int port) { return body_->server.Start(port, body_->certificate); }

std::string IngestService::Origin() const {
  return body_->Scheme() + "127.0.0.1:" + std::to_string(body_->server.Port());
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
