// The life of a connection: the first byte starts the request's time, then come the TLS handshake, the header lines and
// the body; the gate or the handler answers; then the connection is closed. Whatever breaks off on the way throws, and
// ends the connection.
#include "tools/crctl/HttpServer.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <cerrno>
#include <iterator>
#include <list>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

namespace ingest {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using namespace std::chrono_literals;
using boost::system::system_error;
using net::ip::tcp;
using Error = boost::system::error_code;
using Parser = http::request_parser<http::buffer_body>;

constexpr std::size_t headLimitBytes = std::size_t{16} << 10U;
constexpr std::ptrdiff_t mostHeaderLines = 100;
constexpr std::size_t pieceBytes = std::size_t{8} << 10U;
// Bodies above the size of a small one are held for a few connections at a time: all together stay within 12 MiB.
constexpr std::size_t smallBodyBytes = std::size_t{16} << 10U;
constexpr int mostLargeBodies = 2;
// Until a client has read an answer and closes the connection.
constexpr auto farewell = 1s;
constexpr auto pauseWithoutDescriptors = 50ms;

enum Status { badRequest = 400, fieldsTooLarge = 431, unavailable = 503 };

constexpr auto awaited = net::use_awaitable;
constexpr auto tried = net::as_tuple(net::use_awaitable);

// Why a file cannot be read. Links are welcome: certificates often are some.
std::optional<std::string> Unreadable(const std::string& path) {
  if (access(path.c_str(), R_OK) == 0) return std::nullopt;
  return path + ": " + std::generic_category().message(errno);
}

std::string_view View(beast::string_view text) { return {text.data(), text.size()}; }

void SetFields(http::fields& fields) {
  fields.set("Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
             "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
  fields.set("X-Content-Type-Options", "nosniff");
  fields.set("Referrer-Policy", "no-referrer");
  fields.set("Cache-Control", "no-store");
}

struct Connection {
  enum class State { reading, answering, live };

  Connection(tcp::socket socket, std::list<Connection*>& all) : stream(std::move(socket)), all_(all) {
    all_.push_back(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { all_.remove(this); }

  beast::tcp_stream stream;
  State state = State::reading;

 private:
  std::list<Connection*>& all_;
};

// A request whose header lines are read and whose body is not.
Request HeadOf(const Parser& parser) {
  const auto& message = parser.get();
  const std::string_view target = View(message.target());
  const std::size_t mark = target.find('?');
  Request request;
  request.method = View(message.method_string());
  request.path = target.substr(0, mark);
  if (mark != std::string_view::npos) request.query = target.substr(mark + 1);
  request.fields = message;
  return request;
}

template <class Stream>
class StreamExchange : public Exchange {
 public:
  StreamExchange(Connection& connection, Stream& stream, std::chrono::milliseconds time)
      : connection_(connection), stream_(stream), time_(time) {}

  Task<void> Answer(Reply reply) override {
    Connection::State& state = connection_.state;
    if (state == Connection::State::reading) state = Connection::State::answering;
    http::response<http::string_body> response(static_cast<http::status>(reply.status), http11);
    SetFields(response);
    if (!reply.text.empty()) response.set(http::field::content_type, Text(reply.type));
    if (!reply.allow.empty()) response.set(http::field::allow, Text(reply.allow));
    response.keep_alive(false);
    response.content_length(reply.text.size());
    if (!IsHead()) response.body() = std::move(reply.text);
    connection_.stream.expires_after(time_);
    co_await http::async_write(stream_, response, awaited);
  }

  Task<void> Begin(std::string_view type) override {
    http::response<http::empty_body> response(http::status::ok, http11);
    SetFields(response);
    response.set(http::field::content_type, Text(type));
    response.keep_alive(false);
    response.chunked(true);
    http::response_serializer<http::empty_body> serializer(response);
    connection_.stream.expires_after(time_);
    co_await http::async_write_header(stream_, serializer, awaited);
  }
  Task<void> Send(std::string_view piece) override {
    if (IsHead()) co_return;
    connection_.stream.expires_after(time_);
    co_await net::async_write(stream_, http::make_chunk(net::buffer(piece)), awaited);
  }
  Task<void> End() override {
    if (IsHead()) co_return;
    connection_.stream.expires_after(time_);
    co_await net::async_write(stream_, http::make_chunk_last(), awaited);
  }

  void BecomeLive() override { connection_.state = Connection::State::live; }

 private:
  static constexpr unsigned http11 = 11;
  static beast::string_view Text(std::string_view text) { return {text.data(), text.size()}; }
  [[nodiscard]] bool IsHead() const { return request.method == "HEAD"; }

  Connection& connection_;
  Stream& stream_;
  const std::chrono::milliseconds time_;
};

}  // namespace

std::string Request::Field(std::string_view name) const {
  return std::string(View(fields[beast::string_view(name.data(), name.size())]));
}

struct HttpServer::Body {
  Body(const Limits& itsLimits, Gate itsGate, Handler itsHandler)
      : limits(itsLimits), gate(std::move(itsGate)), handler(std::move(itsHandler)) {}

  Task<void> Accept();
  void MakeRoom();
  Task<void> Serve(tcp::socket socket);
  Task<void> Converse(Connection& connection);
  template <class Stream>
  Task<void> TakeRequest(Connection& connection, Stream& stream, beast::flat_buffer& buffer);
  // What is wrong with the header lines, if anything.
  template <class Stream>
  Task<std::optional<Reply>> ReadHead(Stream& stream, beast::flat_buffer& buffer, Parser& parser);
  // Reads it to its end, also where nothing of it is kept: the client would not look for an answer before. The same.
  template <class Stream>
  Task<std::optional<Reply>> ReadBody(Stream& stream, beast::flat_buffer& buffer, Parser& parser, Request& request,
                                      bool& isLarge);
  void End();

  const Limits limits;
  const Gate gate;
  const Handler handler;
  net::io_context context{1};
  std::optional<net::ssl::context> tls;
  tcp::acceptor acceptor{context};
  std::thread thread;
  // All below: the server's thread alone.
  std::list<Connection*> connections;  // the oldest first
  std::set<net::steady_timer*> sleepers;
  int largeBodies = 0;
  bool isEnding = false;
};

Task<void> HttpServer::Body::Accept() {
  while (!isEnding) {
    auto [error, socket] = co_await acceptor.async_accept(tried);
    if (isEnding) break;
    if (error || connections.size() >= limits.connections) MakeRoom();
    if (!error) {
      net::co_spawn(context, Serve(std::move(socket)), net::detached);
      continue;
    }
    // Most likely there is no descriptor left.
    net::steady_timer timer(context, pauseWithoutDescriptors);
    co_await timer.async_wait(awaited);
  }
}

void HttpServer::Body::MakeRoom() {
  for (Connection* connection : connections) {
    if (connection->state == Connection::State::live || !connection->stream.socket().is_open()) continue;
    connection->stream.close();
    return;
  }
}

Task<void> HttpServer::Body::Serve(tcp::socket socket) {
  Connection connection(std::move(socket), connections);
  try {
    co_await Converse(connection);
  } catch (const std::exception&) {
    // The client is gone or too slow, or had to make room: nobody is left to be told.
  }
}

Task<void> HttpServer::Body::Converse(Connection& connection) {
  beast::tcp_stream& plain = connection.stream;
  beast::flat_buffer buffer(headLimitBytes);
  plain.expires_after(limits.requestTime);
  buffer.commit(co_await plain.async_read_some(buffer.prepare(pieceBytes), awaited));
  plain.expires_after(limits.requestTime);
  if (tls) {
    beast::ssl_stream<beast::tcp_stream&> stream(plain, *tls);
    co_await stream.async_handshake(net::ssl::stream_base::server, buffer.data(), awaited);
    buffer.clear();
    co_await TakeRequest(connection, stream, buffer);
    plain.expires_after(farewell);
    co_await stream.async_shutdown(awaited);
    co_return;
  }
  co_await TakeRequest(connection, plain, buffer);
  plain.expires_after(farewell);
  plain.socket().shutdown(tcp::socket::shutdown_send);
  // Closing with bytes unread would reset the connection, and the client could lose the answer.
  for (;;) {
    buffer.clear();
    co_await plain.async_read_some(buffer.prepare(pieceBytes), awaited);
  }
}

template <class Stream>
Task<void> HttpServer::Body::TakeRequest(Connection& connection, Stream& stream, beast::flat_buffer& buffer) {
  StreamExchange<Stream> exchange(connection, stream, limits.requestTime);
  Parser parser;
  parser.header_limit(headLimitBytes);
  parser.body_limit(boost::none);
  auto refusal = co_await ReadHead(stream, buffer, parser);
  bool isLarge = false;
  // However this ends.
  const auto release = [this](const bool* holds) { largeBodies -= *holds ? 1 : 0; };
  const std::unique_ptr<bool, decltype(release)> hold(&isLarge, release);
  if (!refusal) {
    exchange.request = HeadOf(parser);
    refusal = gate(exchange.request);
    if (exchange.request.Field("Expect") == "100-continue") {
      http::response<http::empty_body> goOn(http::status::continue_, 11);
      co_await http::async_write(stream, goOn, awaited);
    }
    auto fault = co_await ReadBody(stream, buffer, parser, exchange.request, isLarge);
    if (!refusal) refusal = std::move(fault);
  }
  if (refusal) {
    co_await exchange.Answer(std::move(*refusal));
    co_return;
  }
  connection.state = Connection::State::answering;
  co_await handler(exchange);
}

template <class Stream>
Task<std::optional<Reply>> HttpServer::Body::ReadHead(Stream& stream, beast::flat_buffer& buffer, Parser& parser) {
  while (!parser.is_header_done()) {
    const auto [error, size] = co_await http::async_read_some(stream, buffer, parser, tried);
    const auto& fields = parser.get();
    if (error == http::error::header_limit || error == http::error::buffer_overflow ||
        std::distance(fields.begin(), fields.end()) > mostHeaderLines) {
      co_return Reply(fieldsTooLarge, "More header lines than are taken here.\n");
    }
    if (error == http::error::end_of_stream || error == http::error::partial_message) throw system_error(error);
    if (error && error.category() == http::make_error_code(http::error::bad_value).category()) {
      co_return Reply(badRequest, "Not HTTP: " + error.message() + ".\n");
    }
    if (error) throw system_error(error);
  }
  co_return std::nullopt;
}

template <class Stream>
Task<std::optional<Reply>> HttpServer::Body::ReadBody(Stream& stream, beast::flat_buffer& buffer, Parser& parser,
                                                      Request& request, bool& isLarge) {
  std::array<char, pieceBytes> piece;
  bool isBusy = false;
  while (!parser.is_done()) {
    auto& rest = parser.get().body();
    rest.data = piece.data();
    rest.size = piece.size();
    const auto [error, size] = co_await http::async_read(stream, buffer, parser, tried);
    if (error && error != http::error::need_buffer) throw system_error(error);
    const std::string_view got(piece.data(), piece.size() - rest.size);
    if (request.isTooLarge || isBusy) continue;
    if (!isLarge && request.body.size() + got.size() > smallBodyBytes) {
      isBusy = largeBodies == mostLargeBodies;
      if (!isBusy) {
        isLarge = true;
        ++largeBodies;
        request.body.reserve(bodyLimitBytes);
      }
    }
    request.isTooLarge = request.body.size() + got.size() > bodyLimitBytes;
    if (request.isTooLarge || isBusy) {
      request.body = std::string();
    } else {
      request.body.append(got);
    }
  }
  if (!isBusy) co_return std::nullopt;
  co_return Reply(unavailable, "Other large requests are being read. Try again.\n");
}

void HttpServer::Body::End() {
  isEnding = true;
  Error none;
  acceptor.close(none);
  for (Connection* connection : connections) {
    if (connection->state != Connection::State::answering) connection->stream.close();
  }
  for (net::steady_timer* sleeper : sleepers) sleeper->cancel();
}

HttpServer::HttpServer(const Limits& limits, Gate gate, Handler handler)
    : body_(std::make_unique<Body>(limits, std::move(gate), std::move(handler))) {}

HttpServer::~HttpServer() {
  if (!body_->thread.joinable()) return;
  net::post(body_->context, [this] { body_->End(); });
  body_->thread.join();
}

std::optional<std::string> HttpServer::Start(int port, const std::optional<Certificate>& certificate) {
  Error error;
  if (certificate) {
    for (const std::string& path : {certificate->path, certificate->keyPath}) {
      if (auto why = Unreadable(path)) return why;
    }
    body_->tls.emplace(net::ssl::context::tls_server);
    body_->tls->set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                            net::ssl::context::no_tlsv1_1);
    body_->tls->use_certificate_chain_file(certificate->path, error);
    if (!error) body_->tls->use_private_key_file(certificate->keyPath, net::ssl::context::pem, error);
    if (error)
      return certificate->path + " and " + certificate->keyPath + " are no certificate and its key: " + error.message();
  }
  const tcp::endpoint endpoint(net::ip::address_v4::loopback(), static_cast<std::uint16_t>(port));
  tcp::acceptor& acceptor = body_->acceptor;
  acceptor.open(endpoint.protocol(), error);
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (!error) acceptor.listen(tcp::acceptor::max_listen_connections, error);
  if (error == net::error::address_in_use)
    return "port " + std::to_string(port) + " is taken: choose another with --port";
  if (error) return "cannot listen on port " + std::to_string(port) + ": " + error.message();
  net::co_spawn(body_->context, body_->Accept(), net::detached);
  body_->thread = std::thread([this] { body_->context.run(); });
  return std::nullopt;
}

int HttpServer::Port() const { return body_->acceptor.local_endpoint().port(); }

Task<void> HttpServer::Sleep(std::chrono::milliseconds time) {
  if (body_->isEnding) co_return;
  net::steady_timer timer(body_->context, time);
  body_->sleepers.insert(&timer);
  static_cast<void>(co_await timer.async_wait(tried));
  body_->sleepers.erase(&timer);
}

void HttpServer::WakeAll() {
  net::post(body_->context, [this] {
    for (net::steady_timer* sleeper : body_->sleepers) sleeper->cancel();
  });
}

bool HttpServer::IsEnding() const { return body_->isEnding; }

}  // namespace ingest
