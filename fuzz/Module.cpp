// A report in either layout, read for the module that crashed.
#include <algorithm>

#include "CRDaemon/CrashedModule.h"
#include "fuzz/Target.h"
#include "tests/simulated/SimulatedMachine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SimulatedMachine machine;
  const std::string_view report = fuzz::TextOf(data, size);
  if (const auto lines = crashedmodule::LinesFromJson(report)) {
    fuzz::Require(lines->ends_with('\n'), "the last line of a JSON report's is whole");
  }
  const std::string lines = crashedmodule::LinesFromText(report);
  fuzz::Require(std::count(lines.begin(), lines.end(), '\n') <= 2, "a text report has a queue and a module at most");
  return 0;
}
