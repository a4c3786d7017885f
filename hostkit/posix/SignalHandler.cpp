#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>

#include "hostkit/posix/AlternateStack.h"
#include "hostkit/posix/Backtrace.h"
#include "hostkit/posix/Host.h"
#include "hostkit/posix/Machine.h"
#include "hostkit/posix/Outcome.h"

namespace hostkit {
namespace {

constexpr int faults[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
constexpr int handledSignals[] = {SIGHUP, SIGINT, SIGPIPE, SIGALRM, SIGTERM, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF};

// The thread that writes the report, and what it died of.
std::atomic<pid_t> writer = 0;
std::atomic<int> signalOfWriter = 0;

void RestoreDefault(int signal) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
}

void Mask(int how, int signal) {
  sigset_t one{};
  sigemptyset(&one);
  sigaddset(&one, signal);
  pthread_sigmask(how, &one, nullptr);
}

// A handler of the host's own may block the fault that following the stack meets next: the kernel would then kill the
// process in the middle of the report.
void UnblockFaults() {
  sigset_t set{};
  sigemptyset(&set);
  for (const int signal : faults) sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

// On return from the handler, so that a core file shows the crash and not us.
void LetKill(int signal) {
  RestoreDefault(signal);
  Mask(SIG_BLOCK, signal);
  raise(signal);
}

[[noreturn]] void KillNow(int signal) {
  RestoreDefault(signal);
  Mask(SIG_UNBLOCK, signal);
  raise(signal);
  constexpr int signalExit = 128;
  _exit(signalExit + signal);
}

// Of this very thread, and not a signal that somebody sent meanwhile.
bool IsOwnFault(int signal, const siginfo_t& info) {
  return info.si_code > 0 || (signal == SIGABRT && info.si_pid == getpid());
}

// The process dies with the writer. Should that one be stuck, this thread takes it along in the end.
void AwaitWriter() {
  constexpr timespec pause{0, 100'000'000};
  constexpr int pauses = 100;
  for (int i = 0; i < pauses; ++i) nanosleep(&pause, nullptr);
}

void OnSignal(int signal, siginfo_t* info, void* context) {
  const ReportPlan* plan = PlanOfThisProcess();
  if (plan == nullptr) return LetKill(signal);
  const pid_t thread = ThreadNumber();
  pid_t current = 0;
  if (writer.compare_exchange_strong(current, thread)) {
    signalOfWriter = signal;
    UnblockFaults();
    WriteReport(*plan, {signal, info, context});
  } else if (current != thread) {
    AwaitWriter();
  } else {
    if (!IsOwnFault(signal, *info)) return;
    ResumeFollowingStack();
    DiscardReport(*plan);
    KillNow(signalOfWriter);
  }
  LetKill(signal);
}

// Everything but a second crash waits until the report is written.
struct sigaction Action() {
  struct sigaction action {};
  action.sa_sigaction = OnSignal;
  action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_NODEFER);
  sigfillset(&action.sa_mask);
  for (const int signal : faults) sigdelset(&action.sa_mask, signal);
  return action;
}

// What the host ignores or handles stays its own.
Outcome Handle(int signal) {
  const struct sigaction action = Action();
  struct sigaction before {};
  if (sigaction(signal, nullptr, &before) != 0) {
    return SystemFailure(CRHOST_SYSTEM_ERROR, "signal " + std::to_string(signal), errno);
  }
  const bool isFree = (before.sa_flags & SA_SIGINFO) == 0 && before.sa_handler == SIG_DFL;
  if (isFree && sigaction(signal, &action, nullptr) != 0) {
    return SystemFailure(CRHOST_SYSTEM_ERROR, "signal " + std::to_string(signal), errno);
  }
  return {};
}

Outcome MakeFolder(const std::string& path) {
  if (path.empty()) return {CRHOST_NO_FOLDER, "this user has no Library folder"};
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    const std::string folder = path.substr(0, end);
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST && access(folder.c_str(), F_OK) != 0) {
      return SystemFailure(CRHOST_NO_FOLDER, folder, errno);
    }
  }
  return access(path.c_str(), W_OK | X_OK) == 0 ? Outcome{} : SystemFailure(CRHOST_NO_FOLDER, path, errno);
}

Outcome ReportSignals(unsigned which) {
  const ReportPlan* plan = PlanOfThisProcess();
  if (plan == nullptr) return {CRHOST_NOT_STARTED, "no daemon watches this process"};
  if (which == 0 || (which & ~(CRHOST_FAULTS | CRHOST_HANDLED_SIGNALS)) != 0) {
    return {CRHOST_INVALID_OPTION, "neither faults nor handled signals"};
  }
  Outcome outcome = MakeFolder(plan->folder);
  if (outcome) outcome = ArmThread();
  if (!outcome) return outcome;
  PrepareBacktraces();
  const auto handle = [&outcome](const auto& signals) {
    for (const int signal : signals) {
      if (outcome) outcome = Handle(signal);
    }
  };
  if ((which & CRHOST_FAULTS) != 0) handle(faults);
  if ((which & CRHOST_HANDLED_SIGNALS) != 0) handle(handledSignals);
  return outcome;
}

}  // namespace
}  // namespace hostkit

crhost_status crhost_report_signals(unsigned which, crhost_error* error) {
  return hostkit::Guarded(error, [which] { return hostkit::ReportSignals(which); });
}

crhost_status crhost_arm_thread(crhost_error* error) {
  return hostkit::Guarded(error, [] { return hostkit::ArmThread(); });
}

void crhost_on_signal(int signal_number, void* info, void* context) {
  if (info == nullptr || context == nullptr) return hostkit::LetKill(signal_number);
  hostkit::OnSignal(signal_number, static_cast<siginfo_t*>(info), context);
}
