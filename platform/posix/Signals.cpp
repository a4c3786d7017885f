#include "platform/posix/Signals.h"

#include <signal.h>

#include <initializer_list>

namespace platform {
namespace {

void SetSignal(int signal, void (*disposition)(int)) {
  struct sigaction action {};
  action.sa_handler = disposition;
  sigaction(signal, &action, nullptr);
}

}  // namespace

void SettleSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE}) SetSignal(signal, SIG_IGN);
  for (const int signal : {SIGTERM, SIGCHLD}) SetSignal(signal, SIG_DFL);
}

}  // namespace platform
