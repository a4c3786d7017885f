// The least that the conversion of a JSON report can do: read the file, and parse its two documents once.
//   floor_parse REPORT
// Prints the nanoseconds of the whole and of the parsing alone, in a process that never did it before.
#include <simdjson.h>

#include <chrono>
#include <cstdio>
#include <string_view>

using Clock = std::chrono::steady_clock;

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto begin = Clock::now();
  const auto report = simdjson::padded_string::load(argv[1]);
  if (report.error() != simdjson::SUCCESS) return 2;
  const auto read = Clock::now();
  const std::string_view text = report.value_unsafe();
  const std::size_t newline = text.find('\n');
  simdjson::dom::parser header;
  simdjson::dom::parser body;
  // Both are followed by the padding, or by more of the report.
  const bool parsed = header.parse(text.data(), newline, false).error() == simdjson::SUCCESS &&
                      body.parse(text.data() + newline, text.size() - newline, false).error() == simdjson::SUCCESS;
  const auto end = Clock::now();
  std::printf("%ld %ld\n", static_cast<long>(std::chrono::nanoseconds(end - begin).count()),
              static_cast<long>(std::chrono::nanoseconds(end - read).count()));
  return parsed ? 0 : 1;
}
