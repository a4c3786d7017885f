// Replays the files of a folder, each a failure once or a seed of the fuzzer, in every build.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "fuzz/Target.h"

int main(int count, char* arguments[]) {
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(count > 1 ? arguments[1] : ".")) {
    std::cout << entry.path().filename().string() << std::endl;
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    static_cast<void>(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    ++replayed;
  }
  return replayed > 0 ? 0 : 1;
}
