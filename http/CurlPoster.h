#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/posix/HttpFrames.h"

// Posts to one URL over one connection, as long as the service keeps it. Of an answer only the status counts: what
// follows is read for the connection's sake, and after a mebibyte no more.
class CurlPoster {
 public:
  // `peerSocket`: whose hang-up ends a post that is under way.
  CurlPoster(const http::Opening& opening, int peerSocket);
  CurlPoster(const CurlPoster&) = delete;
  CurlPoster& operator=(const CurlPoster&) = delete;

  [[nodiscard]] http::Reply Post(std::string_view body);

 private:
  static std::size_t Receive(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  static std::size_t ReceiveHeaderLine(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  static int Progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept;

  void SetUp(const std::string& url);
  void SetTrust();
  [[nodiscard]] http::Reply Judge(CURLcode result) const;

  struct Cleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  std::unique_ptr<curl_slist, Cleanup> headers_;
  std::unique_ptr<CURL, Cleanup> easy_;
  int peerSocket_;
  std::chrono::steady_clock::time_point nextLook_;  // at the peer
  std::size_t receivedBytes_ = 0;                   // of this answer's body
  bool headEnded_ = false;                          // the answer's
  bool failed_ = false;                             // the last post
  char error_[CURL_ERROR_SIZE] = {};
};
