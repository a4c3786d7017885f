#include "reliability/RawService.h"

#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace reliability {
namespace {

constexpr long secondsOfDay = 86400;
constexpr std::chrono::milliseconds step{20};

void Require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

// Zero without one.
std::size_t ContentLength(std::string head) {
  std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return std::tolower(c); });
  constexpr std::string_view name = "\r\ncontent-length:";
  const std::size_t at = head.find(name);
  return at == std::string::npos ? 0 : std::stoul(head.substr(at + name.size()));
}

}  // namespace

Certificate Certificate::Make(const std::string& altName, int firstDay, int lastDay) {
  Certificate made{{EVP_EC_gen("P-256"), EVP_PKEY_free}, {X509_new(), X509_free}};
  X509* x509 = made.x509.get();
  X509_set_version(x509, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509), firstDay * secondsOfDay);
  X509_gmtime_adj(X509_getm_notAfter(x509), lastDay * secondsOfDay);
  X509_set_pubkey(x509, made.key.get());
  X509_NAME* name = X509_get_subject_name(x509);
  const auto* text = reinterpret_cast<const unsigned char*>("service");
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
  X509_set_issuer_name(x509, name);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, altName.c_str()), X509_EXTENSION_free);
  Require(extension && X509_add_ext(x509, extension.get(), -1) == 1, "no alternative name");
  Require(X509_sign(x509, made.key.get(), EVP_sha256()) > 0, "cannot sign");
  return made;
}

std::string Certificate::Pem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  Require(PEM_write_bio_X509(memory.get(), x509.get()) == 1, "cannot write a certificate");
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

bool Connection::Receive() {
  char bytes[16384];
  const int count =
      tls_ != nullptr ? SSL_read(tls_, bytes, sizeof bytes) : static_cast<int>(recv(socket_, bytes, sizeof bytes, 0));
  if (count > 0) received_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

std::optional<std::string> Connection::TakeRequest() {
  constexpr std::string_view headEnd = "\r\n\r\n";
  std::size_t end = 0;
  while ((end = received_.find(headEnd)) == std::string::npos) {
    if (!Receive()) return std::nullopt;
  }
  const std::size_t body = end + headEnd.size();
  const std::size_t size = ContentLength(received_.substr(0, end));
  while (received_.size() < body + size) {
    if (!Receive()) return std::nullopt;
  }
  std::string request = received_.substr(body, size);
  received_.erase(0, body + size);
  return request;
}

bool Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = tls_ != nullptr ? SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()))
                                          : send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool Connection::Pause(std::chrono::milliseconds time) const {
  const auto end = std::chrono::steady_clock::now() + time;
  while (!isEnding_ && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(std::min(step, time));
  return !isEnding_;
}

void Connection::Reset() const {
  const linger atOnce{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

std::string Answer(int status, const std::string& headerLines) {
  return "HTTP/1.1 " + std::to_string(status) + " As Told\r\n" + headerLines + "Content-Length: 0\r\n\r\n";
}

RawService::RawService(Certificate certificate, Talk talk, Greeting greeting)
    : certificate_(std::move(certificate)),
      talk_(std::move(talk)),
      greeting_(greeting),
      context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  Require(SSL_CTX_use_certificate(context_.get(), certificate_.x509.get()) == 1 &&
              SSL_CTX_use_PrivateKey(context_.get(), certificate_.key.get()) == 1,
          "no certificate");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* anyAddress = reinterpret_cast<sockaddr*>(&address);
  Require(bind(listener_, anyAddress, size) == 0 && listen(listener_, SOMAXCONN) == 0 &&
              getsockname(listener_, anyAddress, &size) == 0,
          "cannot listen");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Listen(); });
}

RawService::~RawService() {
  isEnding_ = true;
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  for (Guest& guest : guests_) {
    shutdown(guest.socket, SHUT_RDWR);
    guest.thread.join();
    close(guest.socket);
  }
}

void RawService::Listen() {
  while (!isEnding_) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    const std::lock_guard lock(mutex_);
    guests_.push_back({socket, std::thread([this, socket] { Serve(socket); })});
  }
}

void RawService::Serve(int socket) {
  const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context_.get()), SSL_free);
  Connection plain(socket, nullptr, isEnding_);
  if (greeting_ == Greeting::silence) static_cast<void>(plain.Pause(std::chrono::hours(1)));
  if (greeting_ == Greeting::reset) {
    // Not before the connection stands on the other side, where it would count as refused.
    char hello = 0;
    static_cast<void>(recv(socket, &hello, 1, 0));
    plain.Reset();
  }
  if (greeting_ == Greeting::noTls) plain.Send("220 mail.example ESMTP\r\n");
  SSL_set_fd(tls.get(), socket);
  if (greeting_ == Greeting::handshake && SSL_accept(tls.get()) == 1) {
    ++handshakes_;
    Connection connection(socket, tls.get(), isEnding_);
    talk_(connection);
  }
  // The number stays taken until this object goes; the connection ends now. A reset comes of closing alone.
  linger manner{};
  socklen_t size = sizeof manner;
  getsockopt(socket, SOL_SOCKET, SO_LINGER, &manner, &size);
  if (manner.l_onoff == 0) {
    SSL_shutdown(tls.get());
    shutdown(socket, SHUT_RDWR);
  } else {
    const sockaddr nobody{AF_UNSPEC, {}};
    static_cast<void>(connect(socket, &nobody, sizeof nobody));  // ends it with a reset
  }
}

}  // namespace reliability
