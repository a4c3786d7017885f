// The first line holds application, process, product family and name, separated by bars; each other line is the name of
// a session-info file.
#include <algorithm>
#include <array>
#include <string>

#include "fuzz/Target.h"
#include "support/Paths.h"
#include "tests/simulated/SimulatedMachine.h"
#include "utilities/source/Glimmer/Glimmer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SimulatedMachine machine;
  const std::string folder = "~/sessions/";
  std::string_view rest = fuzz::TextOf(data, size);
  const auto pieces = Pieces(fuzz::TakeLine(rest));
  std::array<std::string, 4> host;
  for (std::size_t i = 0; i < std::min(host.size(), pieces.size()); ++i) host[i] = pieces[i];
  while (!rest.empty()) {
    const std::string name(fuzz::TakeLine(rest));
    if (!name.empty() && name.find('/') == std::string::npos) machine.disk.Put(std::string(folder).append(name));
  }
  const auto session =
      Glimmer().getGlimmerSessionIDFromSIFFile(host[0], host[1], host[2], host[3], paths::ExpandTilde(folder));
  fuzz::Require(!session || session->find('_') == std::string::npos, "a session is one component of a name");
  return 0;
}
