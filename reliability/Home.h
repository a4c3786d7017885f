#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "demo/Sandbox.h"

namespace reliability {

// A home folder of its own in a sandbox, so that many daemons can be tried side by side. The debug log is on. One
// thread.
class Home {
 public:
  Home(demo::Sandbox& sandbox, const std::string& name);

  [[nodiscard]] std::filesystem::path Reports() const { return folder_ / "Library/Logs/DiagnosticReports"; }
  [[nodiscard]] std::filesystem::path Queue() const { return folder_ / "Library/Logs/CrashReporter/Ingest"; }
  void QueueEvent(const std::string& id) const;
  // The ids of the events that are still queued.
  [[nodiscard]] std::vector<std::string> Queued() const;

  // A host and its daemon in this home, with these variables in place of the sandbox's.
  [[nodiscard]] demo::HostRun Start(std::map<std::string, std::string> variables,
                                    const demo::HostOptions& options = {}) const;

 private:
  demo::Sandbox& sandbox_;
  std::filesystem::path folder_;
};

// What a daemon logged under a beginning; empty when it did not.
[[nodiscard]] std::string LoggedAfter(const demo::HostRun& run, std::string_view beginning);

// The figure of a process in /proc/ID/status, such as "VmHWM", in kilobytes; -1 without one.
[[nodiscard]] long MemoryKilobytes(pid_t process, const std::string& figure);

}  // namespace reliability
