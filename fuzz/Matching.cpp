// The first line is a file's name, the rest its text. What the daemon would take for this run's names the process.
#include "CRDaemon/ReportMatching.h"
#include "fuzz/Target.h"
#include "tests/simulated/SimulatedMachine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SimulatedMachine machine;
  std::string_view report = fuzz::TextOf(data, size);
  const std::string_view name = fuzz::TakeLine(report);
  const auto kind = reports::KindOfReport(name, "ips", "4711");
  if (kind == reports::ReportKind::hostSignal) {
    fuzz::Require(name.find("4711") != std::string_view::npos, "the host's own report names the process");
  }
  const bool isCandidate = reports::IsCandidateName(name, "Photo");
  fuzz::Require(!isCandidate || name.starts_with('P'), "a candidate starts as the application's name does");
  const bool namesProcess = reports::NamesProcess(report, "4711");
  fuzz::Require(!namesProcess || report.find("4711") != std::string_view::npos, "a report names the process by its id");
  const bool hasImage = reports::HasBinaryImage(report, "Photo");
  fuzz::Require(!hasImage || report.find("Binary Images") != std::string_view::npos, "images stand after their title");
  return 0;
}
