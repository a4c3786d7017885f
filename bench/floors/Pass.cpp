// The least that a pass over a folder of reports can do: read the names, and look at the files whose name fits.
//   floor_pass FOLDER APPLICATION PASSES
// Prints how many files fit, and the nanoseconds of the median pass.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

bool Fits(const char* name, const char* application) {
  constexpr char extension[] = ".ips";
  const std::size_t length = std::strlen(name);
  return name[0] == application[0] && std::strstr(name, application) != nullptr && length >= sizeof extension &&
         std::strcmp(name + length + 1 - sizeof extension, extension) == 0;
}

int Pass(const char* path, const char* application) {
  DIR* folder = opendir(path);
  if (folder == nullptr) std::exit(2);
  int found = 0;
  while (const dirent* entry = readdir(folder)) {
    if (!Fits(entry->d_name, application)) continue;
    struct statx status {};
    if (statx(dirfd(folder), entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) == 0) ++found;
  }
  closedir(folder);
  return found;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::vector<long> nanoseconds(static_cast<std::size_t>(std::atoi(argv[3])));
  if (nanoseconds.empty()) return 0;
  int found = 0;
  for (long& taken : nanoseconds) {
    const auto begin = std::chrono::steady_clock::now();
    found = Pass(argv[1], argv[2]);
    taken = std::chrono::nanoseconds(std::chrono::steady_clock::now() - begin).count();
  }
  std::sort(nanoseconds.begin(), nanoseconds.end());
  std::printf("%d %ld\n", found, nanoseconds[nanoseconds.size() / 2]);
}
