#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// What a fuzz target defines: takes one input from anywhere, and ends the process when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// Ends the process, which the fuzzer takes for a failure, unless it holds.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "did not hold: %s\n", what);
  std::abort();
}

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// The text up to the first line break, which `rest` loses with it.
inline std::string_view TakeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(line.size() == rest.size() ? line.size() : line.size() + 1);
  return line;
}

}  // namespace fuzz
