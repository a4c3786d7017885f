#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <vector>

#include "hostkit/posix/Host.h"
#include "hostkit/posix/Machine.h"
#include "hostkit/posix/Options.h"
#include "hostkit/posix/Outcome.h"
#include "support/FixedNames.h"

// No system's header has to, and one does.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace hostkit {
namespace {

// Taken by the first to start; a fork inherits that, and so does nothing of its own.
std::atomic_flag isTaken = ATOMIC_FLAG_INIT;
std::atomic<const ReportPlan*> planOfStart = nullptr;
std::atomic<pid_t> daemonOfStart = -1;

class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  // An error number, 0 for none. Nobody who waits for the end of the host's output should have to wait for the daemon.
  int Start(const std::vector<std::string>& arguments, pid_t& process) {
    sigset_t all{};
    sigset_t none{};
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID | streamsOnlyFlag;
    posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      const int error = posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_RDWR, 0);
      if (error != 0) return error;
    }
    if (!AddStreamsOnly(actions_)) return ENOMEM;

    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    return posix_spawn(&process, pointers[0], &actions_, &attributes_, pointers.data(), environ);
  }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
};

Outcome StartDaemon(const crhost_options& options) {
  Outcome checked = CheckOptions(options);
  if (!checked) return checked;
  const ReportPlan* plan = PlanReport(options);
  if (plan == nullptr) return {CRHOST_SYSTEM_ERROR, "out of memory"};
  pid_t daemon = -1;
  const int error = SpawnSettings().Start(DaemonArguments(options), daemon);
  if (error != 0) return SystemFailure(CRHOST_NO_DAEMON, options[CRHOST_DAEMON_PATH], error);
  planOfStart = plan;
  daemonOfStart = daemon;
  return {};
}

// Gives the start back unless it went well.
class Claim {
 public:
  Claim() : isFirst_(!isTaken.test_and_set()) {}
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;
  ~Claim() {
    if (isFirst_ && !isKept_) isTaken.clear();
  }
  [[nodiscard]] bool IsFirst() const { return isFirst_; }
  void Keep() { isKept_ = true; }

 private:
  bool isFirst_;
  bool isKept_ = false;
};

Outcome Announce(const char* name) {
  const ReportPlan* plan = PlanOfThisProcess();
  if (plan == nullptr) return {CRHOST_NOT_STARTED, "no daemon watches this process"};
  const int error = PostNotification(name, std::to_string(plan->process));
  if (error == 0) return {};
  return SystemFailure(error == ETIMEDOUT ? CRHOST_TIMED_OUT : CRHOST_NO_BUS, std::string("session bus, ") + name,
                       error);
}

}  // namespace

const ReportPlan* PlanOfThisProcess() {
  const ReportPlan* plan = planOfStart;
  return plan != nullptr && plan->process == getpid() ? plan : nullptr;
}

}  // namespace hostkit

crhost_status crhost_start(const crhost_options* options, crhost_error* error) {
  using namespace hostkit;
  return Guarded(error, [options]() -> Outcome {
    if (options == nullptr) return {CRHOST_INVALID_OPTION, "no options"};
    Claim claim;
    if (!claim.IsFirst()) {
      return {CRHOST_ALREADY_STARTED, "this process, or the one it was forked from, has started a daemon"};
    }
    Outcome outcome = StartDaemon(*options);
    if (outcome) claim.Keep();
    return outcome;
  });
}

pid_t crhost_daemon_id() { return hostkit::PlanOfThisProcess() == nullptr ? -1 : hostkit::daemonOfStart.load(); }

crhost_status crhost_announce_normal_end(crhost_error* error) {
  return hostkit::Guarded(error, [] { return hostkit::Announce(names::terminatedNormally); });
}

crhost_status crhost_announce_exception_delivered(crhost_error* error) {
  return hostkit::Guarded(error, [] { return hostkit::Announce(names::exceptionDelivered); });
}
