// A host that lives for a day, on the simulated machine, and crashes at its end: what the daemon holds after each hour
// is what it held after the first. Other hosts come and go meanwhile, and windows open and close.
//   reliability_virtual_day [--short]
#include <malloc.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "CRDaemon/MyDaemon.h"
#include "reliability/Figures.h"
#include "support/FixedNames.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t heapSlackBytes = 4096;
constexpr auto crash = 23h + 59min;

struct Holding {
  std::size_t heapBytes;
  std::ptrdiff_t descriptors;
  std::ptrdiff_t threads;
};

std::ptrdiff_t EntriesOf(const char* folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

// The machine's own notes do not count.
Holding Measure(SimulatedMachine& machine) {
  machine.log = {};
  return {mallinfo2().uordblks, EntriesOf("/proc/self/fd"), EntriesOf("/proc/self/task")};
}

// Every ten minutes another host ends and a window comes or goes.
void LiveThroughIt(SimulatedMachine& machine) {
  int number = 0;
  for (auto moment = 10min; moment < crash; moment += 10min, ++number) {
    machine.At(moment)
        .Notify(names::terminatedNormally, {{"pid", std::to_string(5000 + number)}})
        .Do([&machine, number] {
          machine.windows = std::vector<platform::Window>();
          if (number % 2 == 0) machine.windows->push_back({"Photo", "Export", std::to_string(100 + number)});
        });
  }
}

}  // namespace

int main() try {
  SimulatedMachine machine;
  reliability::Figures figures;
  std::optional<Holding> first;
  std::size_t testsBefore = 0;
  LiveThroughIt(machine);
  for (auto hour = 1h; hour < 24h; hour += 1h) {
    machine.At(hour + 1ms).Do([&, hour] {
      const Holding now = Measure(machine);
      if (!first) first = now;
      const bool same = now.heapBytes <= first->heapBytes + heapSlackBytes && now.descriptors == first->descriptors &&
                        now.threads == first->threads;
      figures.Count("virtual hour of a living host: no more memory, descriptors, threads",
                    "hour " + std::to_string(hour.count()) + ": " + std::to_string(now.heapBytes) + " bytes after " +
                        std::to_string(first->heapBytes),
                    same);
      const std::size_t tests = machine.livenessTests - std::exchange(testsBefore, machine.livenessTests);
      figures.Count("virtual hour of a living host: one look a second", std::to_string(tests) + " looks",
                    tests >= 3590 && tests <= 3610);
    });
  }
  machine.At(crash).HostDies(11);
  machine.At(crash).FileAppears(std::string(userReports) + "Photo-1.ips", JsonReport());
  {
    MyDaemon daemon;
    machine.Run(daemon, HostArguments());
  }
  figures.Count("crash after a virtual day: delivered once, reporter started", "the crash",
                machine.posted.size() == 1 && machine.started.size() == 1);
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "reliability_virtual_day: " << error.what() << '\n';
  return 2;
}
