#include "CRDaemon/ReportMatching.h"

#include "platform/System.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace reports {

std::string CrashExtension() { return platform::ReportsAreJson() ? "ips" : "crash"; }

bool IsCandidateName(std::string_view name, std::string_view appName) {
  // An empty application name is in no name.
  return !appName.empty() && name.starts_with(appName.front()) && text::Contains(name, appName);
}

std::optional<ReportKind> KindOfReport(std::string_view name, std::string_view crashExtension,
                                       std::string_view processId) {
  const std::string extension = paths::Extension(name);
  if (extension == "hang") return ReportKind::hang;
  if (extension != crashExtension) return std::nullopt;
  return text::Contains(name, processId) ? ReportKind::hostSignal : ReportKind::systemCrash;
}

bool NamesProcess(std::string_view report, std::string_view processId) {
  const std::string bracketed = "[" + std::string(processId) + "]";
  while (!report.empty()) {
    const std::size_t end = report.find('\n');
    const std::string_view line = report.substr(0, end);
    if (text::Contains(line, processId)) {
      if (text::Contains(line, "Process:") && text::Contains(line, bracketed)) return true;
      if (text::Contains(line, "\"pid\" :")) return true;
    }
    if (end == std::string_view::npos) break;
    report.remove_prefix(end + 1);
  }
  return false;
}

bool IsEarlier(std::optional<platform::Time> created, platform::Time limit) { return created && *created < limit; }

platform::Time MinutesBefore(platform::Time now, std::int32_t minutes) { return now - std::chrono::minutes(minutes); }

bool HasBinaryImage(std::string_view report, std::string_view binaryImageName) {
  const std::size_t images = report.find("Binary Images");
  if (images == std::string_view::npos || binaryImageName.find('\n') != std::string_view::npos) return false;
  return text::Contains(report.substr(images), binaryImageName);
}

}  // namespace reports
