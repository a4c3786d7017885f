#include "platform/posix/Signals.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <initializer_list>

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Clock::rep never = 0;
std::atomic<Clock::rep> terminationRequest = never;
static_assert(std::atomic<Clock::rep>::is_always_lock_free, "for the handler");
void (*wakeOnTermination)() = nullptr;

void NoteTermination(int /*signal*/) {
  const int error = errno;
  Clock::rep expected = never;
  terminationRequest.compare_exchange_strong(expected, Clock::now().time_since_epoch().count());
  if (wakeOnTermination != nullptr) wakeOnTermination();
  errno = error;
}

void MaskTermination(int how) {
  sigset_t signals{};
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(how, &signals, nullptr);
}

void SetSignal(int signal, void (*disposition)(int)) {
  struct sigaction action {};
  action.sa_handler = disposition;
  sigaction(signal, &action, nullptr);
}

}  // namespace

void SettleSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) SetSignal(signal, SIG_IGN);
  SetSignal(SIGCHLD, SIG_DFL);
  MaskTermination(SIG_BLOCK);
}

void CatchTermination(void (*wake)()) {
  wakeOnTermination = wake;
  SetSignal(SIGTERM, NoteTermination);
  MaskTermination(SIG_UNBLOCK);
}

std::optional<Clock::time_point> TerminationRequest() noexcept {
  const Clock::rep request = terminationRequest;
  if (request == never) return std::nullopt;
  return Clock::time_point(Clock::duration(request));
}

}  // namespace platform
