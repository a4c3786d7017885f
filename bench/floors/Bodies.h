#pragma once

#include <fstream>
#include <string>
#include <vector>

// What bench_service recorded: bodies, each behind its size.
inline std::vector<std::string> ReadBodies(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::string> bodies;
  for (std::size_t size = 0; file >> size;) {
    file.get();
    bodies.emplace_back(size, '\0');
    file.read(bodies.back().data(), static_cast<std::streamsize>(size));
  }
  return bodies;
}
