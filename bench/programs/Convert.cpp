// The daemon's own way from a report to the event in its queue, in a process that never did it before.
//   bench_convert REPORT
// Prints its nanoseconds, and by how many kilobytes it raised the peak of the resident memory.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Processes.h"

namespace {

// Of this program: what the system counts for a process begins before it is one.
long PeakKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(line.find_first_of("123456789")));
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  ProcessWide() = InitialProcessValues();
  platform::SettleProcess();
  Ingester ingester("Photo", "4.2", "2.1", "F0F0", "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11");
  // Its first run, over an empty queue, must not share the processor.
  ingester.start();
  ingester.stop();

  const long before = PeakKilobytes();
  const auto begin = std::chrono::steady_clock::now();
  ingester.submitReport(argv[1], "0");
  const auto end = std::chrono::steady_clock::now();
  std::printf("%ld %ld\n", static_cast<long>(std::chrono::nanoseconds(end - begin).count()), PeakKilobytes() - before);
  std::fflush(stdout);
  // The run that is to post the event is nobody's business here.
  _exit(0);
}
