#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/unit/Transcripts.h"

namespace {

// The first line in which they differ, in words; empty when there is none.
std::string Difference(const std::string& known, const std::string& now) {
  std::istringstream knownLines(known);
  std::istringstream nowLines(now);
  for (int number = 1; knownLines || nowLines; ++number) {
    std::string knownLine = "(end)";
    std::string nowLine = "(end)";
    std::getline(knownLines, knownLine);
    std::getline(nowLines, nowLine);
    if (knownLine != nowLine) {
      std::ostringstream difference;
      difference << "line " << number << "\nwas: " << knownLine << "\nnow: " << nowLine;
      return difference.str();
    }
  }
  return {};
}

}  // namespace

void ExpectTranscript(const std::string& name, const std::string& transcript) {
  std::string file = name;
  std::ranges::replace(file, ' ', '-');
  const auto path = std::filesystem::path(CRD_TRANSCRIPTS) / (file + ".txt");
  std::ifstream stream(path);
  const std::string known(std::istreambuf_iterator<char>(stream), {});
  if (known == transcript) return;
  ADD_FAILURE() << path.string() << ": " << Difference(known, transcript);
  if (std::getenv("CRD_RENEW") != nullptr) std::ofstream(path) << transcript;
}
