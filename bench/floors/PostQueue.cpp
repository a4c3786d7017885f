// The least that posting a queue can cost when a helper process does the posting: the calls that no way of reading,
// locking and deleting an event can do without, and a body that needs no making. The next event is read while one is on
// its way.
//   floor_post_queue FOLDER BODIES
// FOLDER holds an event for each body; BODIES is what bench_service recorded. Fails unless every answer was 200.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "CRDaemon/IngestUpload.h"
#include "bench/floors/Bodies.h"
#include "platform/Files.h"

namespace {

std::vector<std::string> Names(const char* path) {
  auto folder = platform::Folder::Open(path);
  std::vector<std::string> names;
  for (std::string name; folder && folder->Next(name);) names.push_back(name);
  return names;
}

bool Read(int folder, const std::string& name) {
  std::array<char, 4096> bytes;
  const int file = openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC);
  const bool isRead = file >= 0 && read(file, bytes.data(), bytes.size()) > 0;
  if (file >= 0) close(file);
  return isRead;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto bodies = ReadBodies(argv[2]);
  const auto names = Names(argv[1]);
  const int folder = open(argv[1], O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0 || bodies.empty() || names.size() != bodies.size()) return 2;
  std::string lock = names[0] + ".lck";
  close(openat(folder, lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));

  platform::HttpClient client = upload::ServiceClient();
  bool allTaken = Read(folder, names[0]);
  for (std::size_t i = 0; i < bodies.size(); ++i) {
    const std::string next = names[i] + ".lck";
    if (i > 0 && renameat(folder, lock.c_str(), folder, next.c_str()) == 0) lock = next;
    const auto readNext = [&] { allTaken = (i + 1 == names.size() || Read(folder, names[i + 1])) && allTaken; };
    allTaken = client.Post(bodies[i], readNext).status == 200 && allTaken;
    allTaken = unlinkat(folder, names[i].c_str(), 0) == 0 && allTaken;
  }
  unlinkat(folder, lock.c_str(), 0);
  return allTaken ? 0 : 1;
}
