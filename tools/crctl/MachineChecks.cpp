#include "platform/Diagnosis.h"
#include "platform/Notify.h"
#include "platform/Processes.h"
#include "platform/Windows.h"
#include "support/Paths.h"
#include "tools/crctl/Answer.h"
#include "tools/crctl/Checks.h"

namespace crctl {
namespace {

Finding CheckBus() {
  const std::error_code error = platform::ReachNotifications();
  if (!error) return {"session-bus", State::ok, "answers", ""};
  if (error == std::errc::destination_address_required) {
    return {
        "session-bus", State::error, "neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set",
        "start the host from a session, or set DBUS_SESSION_BUS_ADDRESS: a delivered exception and a normal end are "
        "not heard without it"};
  }
  return {
      "session-bus", State::error, error.message(),
      "check that a bus listens where DBUS_SESSION_BUS_ADDRESS says: a delivered exception and a normal end are not "
      "heard without it"};
}

Finding CheckExitStatus() {
  if (platform::TellsExitStatus()) return {"exit-status", State::ok, "the kernel tells how a host ended", ""};
  return {"exit-status", State::warning, "the kernel does not tell how a host ended that its parent has reaped",
          "use a kernel of 6.15 or later: until then a signal may pass for a crash, and the end is noticed 5 s late"};
}

Finding CheckWindows() {
  const auto display = platform::Environment("DISPLAY");
  if (!display || display->empty()) {
    return {"windows", State::ok, "no display: there is no system dialog to wait for", ""};
  }
  platform::WatchHost(0);  // the daemon looks at the display once its host has ended
  if (platform::OnScreenWindows()) return {"windows", State::ok, "display " + *display + " answers", ""};
  return {"windows", State::warning, "display " + *display + " does not answer",
          "check DISPLAY and XAUTHORITY: the daemon does not see the system's crash dialog"};
}

Finding CheckProgram(const char* finding, const char* program) {
  const std::string path = paths::Join(platform::ProgramFolder(), program);
  if (platform::IsProgram(path)) return {finding, State::ok, path, ""};
  return {finding, State::error, path + " is not there, or not executable", "install CRDaemon anew"};
}

}  // namespace

Findings CheckMachine() {
  return {CheckBus(), CheckExitStatus(), CheckWindows(), CheckProgram("daemon-program", "CRDaemon"),
          CheckProgram("helper", "CRDaemon-http")};
}

}  // namespace crctl
