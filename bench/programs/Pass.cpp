// The daemon's own pass over a folder of reports, none of which is of this run.
//   bench_pass FOLDER APPLICATION PASSES
// Prints the nanoseconds of the median pass.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::vector<long> nanoseconds(static_cast<std::size_t>(std::atoi(argv[3])));
  ProcessWide() = InitialProcessValues();
  MyDaemon daemon;
  daemon.processId = "4711";
  daemon.appName = argv[2];
  for (long& taken : nanoseconds) {
    MyDaemon::FoundReports found;
    const auto begin = std::chrono::steady_clock::now();
    if (daemon.readDiagnosticReports(argv[1], argv[2], found)) return 1;
    taken = std::chrono::nanoseconds(std::chrono::steady_clock::now() - begin).count();
  }
  if (nanoseconds.empty()) return 0;
  std::sort(nanoseconds.begin(), nanoseconds.end());
  std::printf("%ld\n", nanoseconds[nanoseconds.size() / 2]);
}
