#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/http/fields.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

// An HTTP/1.1 server on the loopback interface for clients that may be hostile. One thread serves all connections, so a
// slow client costs a descriptor and some memory, but no thread. One request a connection; byte ranges are not served.
namespace ingest {

template <class Type>
using Task = boost::asio::awaitable<Type>;

struct Certificate {
  std::string path;
  std::string keyPath;  // both PEM
};

struct Limits {
  // From the first byte of a request to its last one. Each piece of an answer must be taken within the same time.
  std::chrono::milliseconds requestTime{10'000};
  // A connection beyond these takes the place of the oldest one, live streams aside.
  std::size_t connections = 256;
};

struct Request {
  std::string method;
  std::string path;   // as it was sent, percent signs included
  std::string query;  // without the question mark
  boost::beast::http::fields fields;
  std::string body;         // empty when it is too large
  bool isTooLarge = false;  // more than bodyLimitBytes

  // Empty when there is none; the first when there are several.
  [[nodiscard]] std::string Field(std::string_view name) const;
};

inline constexpr std::size_t bodyLimitBytes = std::size_t{4} << 20U;

// No aggregate: the braces of one within a co_await make GCC 12 destroy it twice.
struct Reply {
  explicit Reply(int itsStatus = 200, std::string itsText = {}, std::string_view itsType = "text/plain")
      : status(itsStatus), text(std::move(itsText)), type(itsType) {}

  int status;
  std::string text;
  std::string_view type;
  std::string_view allow;  // the header of that name; empty for none
};

// One request and the way to answer it: Answer, or Begin, Send as often as needed, and End. All throw when the client
// is gone or too slow. On the server's thread.
class Exchange {
 public:
  Exchange() = default;
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  virtual ~Exchange() = default;

  Request request;

  virtual Task<void> Answer(Reply reply) = 0;
  virtual Task<void> Begin(std::string_view type) = 0;
  // Not empty; lives until it is sent.
  virtual Task<void> Send(std::string_view piece) = 0;
  virtual Task<void> End() = 0;
  // From now on this connection makes no room for others. The caller bounds the number of such connections.
  virtual void BecomeLive() = 0;
};

class HttpServer {
 public:
  // Looks at a request without its body; a reply refuses it. On the server's thread.
  using Gate = std::function<std::optional<Reply>(const Request&)>;
  // Answers. An exception of the standard library ends the connection.
  using Handler = std::function<Task<void>(Exchange&)>;

  HttpServer(const Limits& limits, Gate gate, Handler handler);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Cuts live streams and requests that are not whole yet; lets all others finish.
  ~HttpServer();

  // Once; port 0 is any; over TLS when there is a certificate. Why it cannot serve, or none: then it does.
  [[nodiscard]] std::optional<std::string> Start(int port, const std::optional<Certificate>& certificate);
  // Once started.
  [[nodiscard]] int Port() const;

  // Ends early when somebody calls WakeAll, or the server ends. On the server's thread.
  [[nodiscard]] Task<void> Sleep(std::chrono::milliseconds time);
  void WakeAll();  // any thread
  // On the server's thread.
  [[nodiscard]] bool IsEnding() const;

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace ingest
