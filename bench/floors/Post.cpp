// The least that posting can cost: one libcurl handle posts one body after the other, all of them in memory.
//   floor_post URL CERTIFICATES BODIES
// BODIES is what bench_service recorded. Fails unless every answer was 200.
#include <curl/curl.h>

#include <string>

#include "bench/floors/Bodies.h"

namespace {

std::size_t Ignore(void*, std::size_t size, std::size_t count, void*) { return size * count; }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto bodies = ReadBodies(argv[3]);
  CURL* easy = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Expect:");
  headers = curl_slist_append(headers, "content-type: application/json");
  curl_easy_setopt(easy, CURLOPT_URL, argv[1]);
  curl_easy_setopt(easy, CURLOPT_CAINFO, argv[2]);
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, Ignore);
  bool allTaken = !bodies.empty();
  for (const std::string& body : bodies) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    long status = 0;
    allTaken = curl_easy_perform(easy) == CURLE_OK &&
               curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK && status == 200 && allTaken;
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(easy);
  return allTaken ? 0 : 1;
}
