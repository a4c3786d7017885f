#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct HttpAnswer {
  int status = 0;     // 0: no answer came, `error` says why
  std::string error;  // empty with a status
};

// Posts to one URL with the same header lines each time, over one connection where the service keeps it. The work is
// done by a helper process that the first post starts and that ends with this object. Certificates and host names are
// always verified; redirects are not followed. One thread.
class HttpClient {
 public:
  HttpClient(std::string url, std::vector<std::string> headerLines);
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;
  ~HttpClient();

  // At most 130 s. A spent client answers with an error at once. `meanwhile`, which must not throw, is called while the
  // service has its turn, unless the post fails before.
  [[nodiscard]] HttpAnswer Post(std::string_view body, const std::function<void()>& meanwhile = {});

  // After a time-out, and 130 s after its first post, a client begins no other: an exit that waits for it has an end.
  [[nodiscard]] bool IsSpent() const;

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace platform
