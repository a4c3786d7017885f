// Makes every call that can fail do so, once each and in turn, in CRDaemon and in the program that posts for it,
// through a whole crash: with the errors of a full and of a broken disk, and with those that belong to a call of its
// kind.
//   reliability_errors [--short]
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>

#include "reliability/CrashScenes.h"
#include "reliability/Figures.h"

namespace {

using reliability::Event;
using reliability::Fault;
using reliability::Outcome;

const std::map<std::string, std::vector<std::string>> errorsOf = {
    {"write", {"ENOSPC", "EIO", "EINTR"}},
    {"pwrite64", {"ENOSPC", "EIO", "EINTR"}},
    {"fsync", {"ENOSPC", "EIO", "EINTR"}},
    {"fdatasync", {"ENOSPC", "EIO", "EINTR"}},
    {"ftruncate", {"ENOSPC", "EIO"}},
    {"rename", {"ENOSPC", "EIO", "EACCES"}},
    {"renameat", {"ENOSPC", "EIO", "EACCES"}},
    {"renameat2", {"ENOSPC", "EIO", "EACCES"}},
    {"linkat", {"ENOSPC", "EIO", "EACCES"}},
    {"unlink", {"EIO", "EACCES"}},
    {"unlinkat", {"EIO", "EACCES"}},
    {"mkdir", {"ENOSPC", "EIO", "EACCES"}},
    {"mkdirat", {"ENOSPC", "EIO", "EACCES"}},
    {"flock", {"EIO", "EINTR", "ENOLCK"}},
    {"fchmod", {"EIO"}},
    {"fchown", {"EIO"}},
    {"connect", {"ECONNREFUSED", "ENETUNREACH"}},
    {"socketpair", {"EMFILE", "ENOMEM"}},
    {"sendto", {"EIO"}},
    {"sendmsg", {"EIO"}},
    {"recvfrom", {"EIO"}},
    {"clone3", {"EAGAIN"}},
    {"clone", {"EAGAIN"}},
    {"getdents64", {"EIO"}},
};

constexpr std::size_t shortStride = 12;  // shares no factor with the errors of most calls: all of them have their turn
constexpr int eventsInQueue = 3;

std::string AllCalls() {
  std::string calls;
  for (const auto& [call, errors] : errorsOf) calls += (calls.empty() ? "" : ",") + call;
  return calls;
}

std::vector<Fault> ErrorsIn(const Fault& undisturbed, const std::string& program, const std::vector<std::string>& calls,
                            std::string Fault::*target) {
  std::vector<Fault> faults;
  for (const std::string& step : reliability::StepsOf(calls)) {
    for (const std::string& error : errorsOf.at(step.substr(0, step.find(' ')))) {
      Fault fault = undisturbed;
      fault.name.append(", ").append(program).append(": ").append(error).append(" from ").append(step);
      fault.*target = reliability::InjectionAt(step, "error=" + error);
      faults.push_back(std::move(fault));
    }
  }
  return faults;
}

std::vector<Fault> AllFaults() {
  const std::vector<Fault> undisturbed = {{.name = "full queue", .queued = eventsInQueue}, {.name = "empty queue"}};
  const auto runs = reliability::PlayScenes(undisturbed, AllCalls());
  std::vector<Fault> faults;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (!runs[i].harm.empty()) throw std::runtime_error("undisturbed: " + runs[i].harm);
    for (auto& fault : ErrorsIn(undisturbed[i], "CRDaemon", runs[i].daemonCalls, &Fault::daemon))
      faults.push_back(fault);
    for (auto& fault : ErrorsIn(undisturbed[i], "CRDaemon-http", runs[i].posterCalls, &Fault::poster)) {
      faults.push_back(fault);
    }
  }
  return faults;
}

void Judge(const Fault& fault, const Outcome& outcome, reliability::Figures& figures) {
  const bool served = outcome.daemonStatus == 0 && outcome.event != Event::none;
  std::string harm = outcome.harm;
  if (outcome.daemonStatus != 0) harm += " ended with status " + std::to_string(outcome.daemonStatus);
  if (outcome.event == Event::none) harm += " the crash was lost";
  figures.Count(fault.daemon.empty() ? "error returned to CRDaemon-http: crash delivered or queued"
                                     : "error returned to CRDaemon: crash delivered or queued, preferences whole",
                fault.name + ": " + harm, served && outcome.harm.empty());
}

}  // namespace

int main(int argc, char* argv[]) try {
  const std::vector<Fault> all = AllFaults();
  const auto faults = reliability::IsShort(argc, argv) ? reliability::EveryNth(all, shortStride) : all;
  reliability::Figures figures;
  reliability::PlayInTurns(faults, AllCalls(),
                           [&](const Fault& fault, const Outcome& outcome) { Judge(fault, outcome, figures); });
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "reliability_errors: " << error.what() << '\n';
  return 2;
}
