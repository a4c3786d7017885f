#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "tools/crctl/EventStore.h"
#include "tools/crctl/HttpServer.h"

namespace ingest {

// The ingest service on the loopback interface: takes posts, keeps them with their answers, and shows them. Requests
// that name a host other than a loopback one are refused: a page of another site must not read through a name of its
// own. So are requests of foreign pages, which nothing is kept of. Operations may be called on any thread.
class IngestService {
 public:
  // Told of each record once it is in the store, by one thread at a time.
  using Listener = std::function<void(const platform::Dictionary& record)>;

  // Over TLS when there is a certificate. The store must outlive the service.
  IngestService(EventStore& store, const std::optional<Certificate>& certificate, Listener listener,
                const Limits& limits = {});
  IngestService(const IngestService&) = delete;
  IngestService& operator=(const IngestService&) = delete;
  // Lets requests finish that have wholly arrived, live streams aside.
  ~IngestService();

  // Once; port 0 is any. Why it cannot serve, or none: then it does, on threads of its own.
  [[nodiscard]] std::optional<std::string> Start(int port);
  // "https://127.0.0.1:1234", once started.
  [[nodiscard]] std::string Origin() const;

  // The answers to sound posts from now on, one each; the last one repeats. At first 200; an unsound one gets 422.
  void AnswerWith(std::vector<int> statuses);
  // The time that an answer takes from now on. At first none.
  void AnswerAfter(std::chrono::milliseconds delay);

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace ingest
