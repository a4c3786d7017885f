// The service that events are posted to while posting is measured: it takes everything and counts.
//   bench_service CERTIFICATE KEY
// Prints "port" and the port. After each line of its standard input it prints what came since the one before: requests,
// TLS handshakes, and the nanoseconds from the first request to the last answer. A line that names a file also has the
// bodies written there, each behind its size.
#include <httplib.h>
#include <openssl/ssl.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

class Count {
 public:
  void Add(const std::string& body) {
    const std::lock_guard lock(mutex_);
    last_ = Clock::now();
    if (bodies_.empty()) first_ = last_;
    bodies_.push_back(body);
  }

  void Report(long handshakes, const std::string& file) {
    const std::lock_guard lock(mutex_);
    std::cout << bodies_.size() << ' ' << handshakes - std::exchange(handshakes_, handshakes) << ' '
              << std::chrono::nanoseconds(last_ - first_).count() << std::endl;
    if (!file.empty()) {
      std::ofstream output(file, std::ios::binary);
      for (const std::string& body : bodies_) output << body.size() << '\n' << body;
    }
    bodies_.clear();
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> bodies_;
  Clock::time_point first_;
  Clock::time_point last_;
  long handshakes_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  httplib::SSLServer server(argv[1], argv[2]);
  if (!server.is_valid()) return 2;
  Count count;
  server.set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
  server.set_tcp_nodelay(true);
  server.Post(".*", [&count](const httplib::Request& request, httplib::Response& response) {
    count.Add(request.body);
    response.status = 200;
  });
  const int port = server.bind_to_any_port("127.0.0.1");
  if (port <= 0) return 2;
  std::thread listener([&server] { server.listen_after_bind(); });
  std::cout << "port " << port << std::endl;
  for (std::string file; std::getline(std::cin, file);) {
    count.Report(SSL_CTX_sess_accept_good(server.ssl_context()), file);
  }
  server.stop();
  listener.join();
}
