#include <algorithm>

#include "platform/Diagnosis.h"
#include "platform/Processes.h"
#include "tools/crctl/Answer.h"
#include "tools/crctl/Checks.h"

namespace crctl {
namespace {

using platform::RunningProgram;

// Of the daemon's arguments.
constexpr std::size_t hostElement = 1;
constexpr std::size_t applicationElement = 2;
constexpr std::size_t reporterElement = 5;
constexpr std::size_t throttlingElement = 25;
constexpr std::size_t allElements = 31;

std::string ElementOf(const RunningProgram& daemon, std::size_t number) {
  return number < daemon.arguments.size() ? daemon.arguments[number] : "";
}

std::vector<RunningProgram> DaemonsOf(const Subject& subject) {
  std::vector<RunningProgram> daemons = platform::RunningPrograms("CRDaemon");
  std::erase_if(daemons, [&subject](const RunningProgram& daemon) {
    return (subject.host && ElementOf(daemon, hostElement) != std::to_string(*subject.host)) ||
           (subject.application && ElementOf(daemon, applicationElement) != *subject.application);
  });
  return daemons;
}

Finding CheckHost(std::int32_t host) {
  const std::string seen = "process " + std::to_string(host);
  if (platform::HostLives(host)) return {"host", State::ok, seen + " is alive", ""};
  return {"host", State::error, seen + " is not alive", "start the host"};
}

Finding CheckDaemons(const std::vector<RunningProgram>& daemons) {
  if (!daemons.empty()) {
    return {"daemon", State::ok, "process " + std::to_string(daemons.front().processId) + " watches", ""};
  }
  return {"daemon", State::error, "no daemon watches it", "start CRDaemon from the host, with the host's process id"};
}

Finding CheckReporter(const std::string& path) {
  if (platform::IsProgram(path)) return {"reporter", State::ok, path, ""};
  return {"reporter", State::error, path + " is not there, or not executable",
          "pass the crash reporter's executable as argument 5"};
}

Finding CheckArguments(const RunningProgram& daemon) {
  const std::size_t given = daemon.arguments.size();
  const std::string seen = std::to_string(given == 0 ? 0 : given - 1) + " arguments";
  if (given >= allElements) return {"arguments", State::ok, seen, ""};
  return {"arguments", State::error, seen + ": the daemon does nothing, or ends at once", "pass all 30"};
}

Finding CheckThrottling(const RunningProgram& daemon) {
  if (ElementOf(daemon, throttlingElement) != "1") return {"throttling", State::ok, "the host does not throttle", ""};
  return {"throttling", State::warning,
          "the host throttles this user: events are posted, but no crash reporter is started",
          "do not pass 1 as argument 25"};
}

}  // namespace

Findings CheckRuns(const Subject& subject) {
  Findings findings;
  if (subject.host) findings.push_back(CheckHost(*subject.host));
  std::vector<RunningProgram> daemons;
  if (subject.host || subject.application) {
    daemons = DaemonsOf(subject);
    findings.push_back(CheckDaemons(daemons));
  }
  for (const RunningProgram& daemon : daemons) {
    findings.push_back(CheckArguments(daemon));
    findings.push_back(CheckThrottling(daemon));
    if (!subject.reporter) findings.push_back(CheckReporter(ElementOf(daemon, reporterElement)));
  }
  if (subject.reporter) findings.push_back(CheckReporter(*subject.reporter));
  return findings;
}

}  // namespace crctl
