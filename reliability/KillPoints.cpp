// Kills CRDaemon, and the program that posts for it, at every step of a whole crash, and looks at what is left: first
// as the kill left it, then once a further daemon has lived and ended undisturbed.
//   reliability_kill_points [--short]
#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "reliability/CrashScenes.h"
#include "reliability/Figures.h"

namespace {

using reliability::Event;
using reliability::Fault;
using reliability::Outcome;

// All that changes something outside the process.
constexpr char calls[] =
    "write,pwrite64,fsync,fdatasync,ftruncate,rename,renameat,renameat2,link,linkat,unlink,unlinkat,mkdir,mkdirat,"
    "flock,connect,sendto,sendmsg,socketpair,fchmod,fchown,clone,clone3,vfork";
constexpr char kill[] = "signal=SIGKILL";
constexpr std::size_t shortStride = 4;
constexpr int eventsInQueue = 6;  // so many that the uploads reach higher numbers of a call than the worker

// What an undisturbed run does decides where to strike.
std::vector<Fault> PointsOf(bool isShort) {
  const std::vector<Fault> undisturbed = {{.name = "full queue", .queued = eventsInQueue},
                                          {.name = "empty queue"},
                                          {.name = "no reporter wanted", .neverSend = true}};
  const auto runs = reliability::PlayScenes(undisturbed, calls);
  std::vector<Fault> faults;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (!runs[i].harm.empty()) throw std::runtime_error("undisturbed: " + runs[i].harm);
    const auto add = [&](const std::string& program, const std::string& step, std::string Fault::*target) {
      Fault fault = undisturbed[i];
      fault.name.append(", ").append(program).append(" at ").append(step);
      fault.*target = reliability::InjectionAt(step, kill);
      faults.push_back(std::move(fault));
    };
    for (const auto& step : reliability::StepsOf(runs[i].daemonCalls)) add("CRDaemon", step, &Fault::daemon);
    for (const auto& step : reliability::StepsOf(runs[i].posterCalls)) add("CRDaemon-http", step, &Fault::poster);
  }
  return isShort ? reliability::EveryNth(faults, shortStride) : faults;
}

class Judge {
 public:
  void operator()(const Fault& fault, const Outcome& outcome) {
    const bool held = outcome.harm.empty();
    const std::string name = fault.name + ": " + outcome.harm;
    if (fault.daemon.empty()) {
      figures_.Count("CRDaemon-http killed at a step: nothing lost", name, held && outcome.daemonStatus == 0);
      return;
    }
    ++daemonPoints_;
    // No two runs are quite alike: one may need a call less, and is then a run that nothing happened to.
    if (held && outcome.daemonStatus == 0) {
      ++missed_;
      return;
    }
    figures_.Count("CRDaemon killed at a step: nothing lost", name, held);
    if (outcome.event != Event::none) return;
    // No event yet, and no daemon any more that could make one: what there is to have is the report itself.
    figures_.Count(outcome.remembered ? "of these, crash remembered and not yet queued: its report stays"
                                      : "of these, crash not yet remembered: its report stays",
                   name, held);
  }

  [[nodiscard]] int Conclude() const {
    const int status = figures_.Print();
    if (missed_ * 10 > daemonPoints_) throw std::runtime_error(std::to_string(missed_) + " kills did not strike");
    return status;
  }

 private:
  reliability::Figures figures_;
  int daemonPoints_ = 0;
  int missed_ = 0;
};

}  // namespace

int main(int argc, char* argv[]) try {
  const std::vector<Fault> faults = PointsOf(reliability::IsShort(argc, argv));
  Judge judge;
  reliability::PlayInTurns(faults, calls, std::ref(judge));
  return judge.Conclude();
} catch (const std::exception& error) {
  std::cerr << "reliability_kill_points: " << error.what() << '\n';
  return 2;
}
