#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/PropertyList.h"

namespace ingest {

// What came in one request.
struct Post {
  std::string method;
  std::string path;
  std::string contentType;
  std::string apiKey;
  std::string body;
};

struct CheckedPost {
  // Each the place and its fault: `/events/0/project: must be "evtsk-dsk-channel", is "x"`. Empty for what CRDaemon
  // sends.
  std::vector<std::string> problems;
  // The first event of the envelope, and two of its texts; empty as far as it has none.
  platform::Dictionary event;
  std::string app;
  std::string kind;
};

// Holds requests against the protocol; of their bodies, that is docs/event.schema.json, no object with a key that
// stands twice, and UTF-8. Any thread.
class PostCheck {
 public:
  PostCheck();
  PostCheck(const PostCheck&) = delete;
  PostCheck& operator=(const PostCheck&) = delete;
  ~PostCheck();

  // The body may be hostile, and is taken to be bounded.
  [[nodiscard]] CheckedPost Check(const Post& post) const;

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace ingest
