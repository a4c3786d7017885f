#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

// An HTTPS service on the loopback interface that behaves as badly as it is told to.
namespace reliability {

// Self-signed, with its key. `altName` is whom it is for, such as "IP:127.0.0.1"; days count from now.
struct Certificate {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> x509;

  [[nodiscard]] static Certificate Make(const std::string& altName, int firstDay, int lastDay);
  [[nodiscard]] std::string Pem() const;
};

// One connection, after its handshake. Belongs to one thread.
class Connection {
 public:
  Connection(int socket, SSL* tls, const std::atomic<bool>& isEnding)
      : socket_(socket), tls_(tls), isEnding_(isEnding) {}

  // The body of the next request; none once the other side is gone.
  [[nodiscard]] std::optional<std::string> TakeRequest();
  // False once the other side is gone.
  bool Send(std::string_view bytes);
  // False when the service ends meanwhile.
  bool Pause(std::chrono::milliseconds time) const;
  // What follows is a reset instead of an orderly end.
  void Reset() const;

 private:
  [[nodiscard]] bool Receive();

  int socket_;
  SSL* tls_;
  const std::atomic<bool>& isEnding_;
  std::string received_;
};

// A whole answer without a body.
[[nodiscard]] std::string Answer(int status, const std::string& headerLines = "");

enum class Greeting { handshake, silence, reset, noTls };

// Each connection has a thread of its own, which `talk` runs on; all have ended when this object goes.
class RawService {
 public:
  using Talk = std::function<void(Connection&)>;

  RawService(Certificate certificate, Talk talk, Greeting greeting = Greeting::handshake);
  RawService(const RawService&) = delete;
  RawService& operator=(const RawService&) = delete;
  ~RawService();

  [[nodiscard]] std::string Url() const { return "https://127.0.0.1:" + std::to_string(port_) + "/ingest"; }
  [[nodiscard]] int Handshakes() const { return handshakes_; }

 private:
  struct Guest {
    int socket;
    std::thread thread;
  };

  void Listen();
  void Serve(int socket);

  Certificate certificate_;
  Talk talk_;
  Greeting greeting_;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  int listener_;
  int port_ = 0;
  std::atomic<bool> isEnding_ = false;
  std::atomic<int> handshakes_ = 0;
  std::mutex mutex_;  // of the guests
  std::list<Guest> guests_;
  std::thread thread_;
};

}  // namespace reliability
