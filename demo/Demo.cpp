// Plays the daemon's main job with real hosts and the real daemon, prints what each did and when, and fails when
// anything did not happen.
//   Demo [--page] [--screenshot FILE]
//   --page             the ingest service shows its page from the first scene on, and stays after the last one until it
//   is
//                      told to end: Enter at a terminal, or SIGINT or SIGTERM
//   --screenshot FILE  leaves an image of that page
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "demo/Browser.h"
#include "demo/Display.h"
#include "demo/Sandbox.h"
#include "support/Json.h"

namespace {

using demo::HostRun;
using platform::Dictionary;
using platform::Value;
using namespace std::chrono_literals;

// In the order in which the crash reporter gets them.
constexpr const char* reporterArgumentNames[] = {
    "report",         "name",     "version",       "icon",        "send value",       "process id",
    "description",    "product",  "build",         "session",     "display name",     "show only once",
    "scaling factor", "kind",     "hang report",   "exit status", "reporter version", "dialog options",
    "dialog e-mail",  "minidump", "dump attached", "user GUID",   "code type",        "license type"};

std::string Text(const Value& value) { return std::get<std::string>(json::Write(value)); }

void PrintObject(const Dictionary& object, const std::string& indent) {
  for (const auto& [key, value] : object) {
    if (const auto* inner = value.As<Dictionary>()) {
      std::cout << indent << key << ":\n";
      PrintObject(*inner, indent + "    ");
    } else {
      std::cout << indent << key << ": " << Text(value) << '\n';
    }
  }
}

struct Options {
  bool staysWithPage = false;
  std::optional<std::string> screenshot;

  [[nodiscard]] bool ShowPage() const { return staysWithPage || screenshot; }
};

// Until somebody at the terminal presses Enter, or a signal says so: the world of the demonstration must go with its
// end.
void AwaitLeave() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const int signalFile = signalfd(-1, &signals, SFD_CLOEXEC);
  const bool atTerminal = isatty(STDIN_FILENO) == 1;
  std::cout << (atTerminal ? "Enter or Ctrl-C ends it." : "Ctrl-C or SIGTERM ends it.") << std::endl;
  std::array<pollfd, 2> inputs = {pollfd{.fd = signalFile, .events = POLLIN, .revents = 0},
                                  pollfd{.fd = atTerminal ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0}};
  while (poll(inputs.data(), inputs.size(), -1) < 0 && errno == EINTR) {
  }
  close(signalFile);
}

class Demonstration {
 public:
  // A browser takes the page without questions when it comes without TLS. The rest of the demonstration is the same.
  explicit Demonstration(Options options)
      : options_(std::move(options)), sandbox_({.isServedWithTls = !options_.ShowPage()}) {}

  // False when anything did not happen.
  bool Play() {
    if (options_.ShowPage()) std::cout << "Events arrive at " << sandbox_.Page() << std::endl;
    Scene("(a) The host dies of SIGSEGV. Its own handler writes a signal report.", [this] { SignalReport(); });
    Scene("(b) The host dies. The system's report appears two seconds later.", [this] { SystemReport(); });
    Scene("(c) The host ends normally.", [this] { NormalEnd(); });
    Scene("(d) The service answers 500. The next run delivers.", [this] { Redelivery(); });
    Scene("(e) The system shows its crash dialog, which is closed after two seconds.", [this] { CrashDialog(); });
    Scene("(f) The host's Crashpad handler leaves a compressed minidump.", [this] { Minidump(); });
    Scene("(g) The host hangs and gets SIGTERM: its own report, and the system's hang report.", [this] { Hang(); });
    Scene("(h) The host takes part in usage analytics.", [this] { AnalyticsSession(); });
    Scene("(i) The host asked for the name of the crashed module.", [this] { CrashedModule(); });
    std::cout << '\n' << (failures_ == 0 ? "All of it happened." : "Something did not happen.") << std::endl;
    if (options_.screenshot) Photograph(*options_.screenshot);
    if (options_.staysWithPage) {
      std::cout << "\nThe events are at " << sandbox_.Page() << "  ";
      AwaitLeave();
    }
    return failures_ == 0;
  }

 private:
  void Scene(const char* title, const std::function<void()>& play) {
    std::cout << '\n' << title << "\n\n";
    begin_ = std::chrono::steady_clock::now();
    sandbox_.ForgetStartedPrograms();
    play();
  }

  void SignalReport() {
    HostRun run = StartHost({{19, "1"}, {23, "0"}});
    LiveAWhile(run);
    run.host.Say("report-signals");
    run.host.Say("crash");
    const auto status = run.host.AwaitEnd();
    Tell("host", "died of SIGSEGV");
    Expect(status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGSEGV, "the host died of SIGSEGV");
    FollowToItsEnd(run);
    ExpectDelivered("abnormal:signal");
    ExpectReporter("1");
  }

  void SystemReport() {
    const demo::Program writer = StartReportWriter();
    HostRun run = StartHost({});
    LiveAWhile(run);
    Crash(run);
    FollowFor(2s, run);
    PutSystemReport(run, "Photo-Darkroom.ips");
    FollowToItsEnd(run);
    Expect(!run.Logged("Number of current processes: 0"), "the process that writes the report was counted");
    ExpectDelivered("abnormal:crash");
    ExpectReporter("0");
  }

  void NormalEnd() {
    const std::size_t received = sandbox_.Received().size();
    HostRun run = StartHost({{23, "1"}});
    LiveAWhile(run);
    run.host.Say("exit 0");
    Expect(run.host.AwaitEnd() == 0, "the host ended with status 0");
    Tell("host", "ended with status 0");
    FollowToItsEnd(run);
    Expect(run.Logged("Normal Exit"), "the daemon took it for a normal end");
    Expect(sandbox_.Received().size() == received, "nothing was posted");
    Expect(!sandbox_.ReporterArguments(), "no crash reporter was started");
  }

  void Redelivery() {
    sandbox_.TellService("status 500");
    {
      HostRun run = StartHost({});
      LiveAWhile(run);
      Crash(run);
      PutSystemReport(run, "Photo-Lightbox.ips");
      FollowToItsEnd(run);
    }
    const demo::Receipt refused = LastReceipt();
    Expect(refused.status == 500, "the service answered 500");
    Expect(sandbox_.QueuedEvents().size() == 1, "the event stayed in the queue");

    sandbox_.TellService("status 200");
    HostRun run = StartHost({});
    Follow(run, demo::patience, [&] { return sandbox_.QueuedEvents().empty(); });
    run.host.Say("exit 0");
    Expect(run.host.AwaitEnd() == 0, "the next host ended normally");
    Tell("host", "ended with status 0");
    FollowToItsEnd(run);
    Expect(LastReceipt().status == 200, "the service answered 200");
    Expect(LastReceipt().Data("event.guid") == refused.Data("event.guid"), "it was the same event");
  }

  // The report is protected until the dialog is gone, as far as this account may protect files.
  void CrashDialog() {
    demo::Display display;
    sandbox_.environment["DISPLAY"] = display.Name();
    HostRun run = StartHost({});
    sandbox_.environment.erase("DISPLAY");
    LiveAWhile(run);
    std::optional<demo::Program> dialog;
    std::optional<demo::Protection> protection;
    PutSystemReport(run, "Photo-Dialog.ips");
    protection.emplace(sandbox_.Reports() / "Photo-Dialog.ips");
    Crash(run);
    dialog.emplace(display.Show("Problem Reporter", {"Photo quit unexpectedly."}).program);
    Tell("system", std::string("shows its dialog") + (protection->Holds() ? " and protects the report" : ""));
    FollowFor(2s, run);
    dialog.reset();
    protection.reset();
    Tell("user", "closed the dialog");
    FollowToItsEnd(run);
    if (run.Logged("Apple Report not available, Wait for Apple crash dialog")) {
      Expect(run.Logged("Apple Crash Dialog Window ID: "), "the daemon found the dialog");
    } else {
      std::cout << "\n  Only root can protect a report: without that the daemon need not wait for the dialog.\n";
    }
    ExpectDelivered("abnormal:crash");
    ExpectReporter("0");
  }

  void Minidump() {
    HostRun run = StartHost({});
    LiveAWhile(run);
    const std::string dump = sandbox_.PendingDumps(run) / "5A8B6C1D-0f3e-4D2C-9B7E-1A2B3C4D5E6F.dmp";
    sandbox_.Put(dump, "MDMP");
    sandbox_.Put(dump + ".gz", "compressed MDMP");
    Crash(run);
    Tell("host", "its handler wrote a plain and a compressed minidump");
    PutSystemReport(run, "Photo-Minidump.ips");
    FollowToItsEnd(run);
    ExpectDelivered("abnormal:crash");
    ExpectReporter("0");
    ExpectReporterArgument(19, dump + ".gz");
    ExpectReporterArgument(20, "Yes");
  }

  void Hang() {
    HostRun run = StartHost({{19, "1"}});
    LiveAWhile(run);
    run.host.Say("report-signals");
    const std::string report = "Photo-Spin.hang";
    sandbox_.Put(sandbox_.Reports() / report,
                 "Process:         Photo [" + std::to_string(run.host.Id()) + "]\nEvent:           hang\n");
    Tell("system", "wrote " + report);
    run.host.Say("signal 15");
    const auto status = run.host.AwaitEnd();
    Tell("host", "died of SIGTERM");
    Expect(status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGTERM, "the host died of SIGTERM");
    FollowToItsEnd(run);
    ExpectDelivered("abnormal:signal");
    ExpectReporter("3");
    ExpectReporterArgument(14, sandbox_.Reports() / report);
  }

  void AnalyticsSession() {
    sandbox_.InstallCrashProcessor();
    HostRun run = StartHost({});
    const std::string process = std::to_string(run.host.Id());
    sandbox_.Put(sandbox_.Library() / "Logs/Malvex/GlimmerXT/SessionInfo" /
                     ("2026_Photo_PhotoDesktop_7C4E9A10-SESSION_" + process + "_Photo"),
                 "");
    Tell("host", "its analytics session is 7C4E9A10-SESSION");
    LiveAWhile(run);
    Crash(run);
    PutSystemReport(run, "Photo-Session.ips");
    FollowToItsEnd(run);
    ExpectDelivered("abnormal:crash");
    Expect(LastReceipt().Data("event.session_guid") == "7C4E9A10-SESSION", "the event names the session");
    ExpectReporter("0");
    ExpectReporterArgument(9, "SkylanceSessionId:  7C4E9A10-SESSION");
    Expect(demo::Eventually([this] { return sandbox_.StartedWith("GLCrashProcessor").has_value(); }),
           "the crash processor was started");
    const std::vector<std::string> expected = {"Photo", process, "", "", "", "", ""};
    Expect(sandbox_.StartedWith("GLCrashProcessor") == expected, "the crash processor got its seven arguments");
    std::cout << "\n  The crash processor's arguments: Photo, " << process << " and five empty ones\n";
  }

  void CrashedModule() {
    HostRun run = StartHost({{28, "1"}});
    LiveAWhile(run);
    Crash(run);
    PutSystemReport(run, "Photo-Module.ips");
    FollowToItsEnd(run);
    ExpectDelivered("abnormal:crash");
    const std::string module = demo::ContentOf(sandbox_.Library() / "Preferences/Photo/4.2/CrashModule.txt");
    Expect(module == "\ncom.apple.main-thread\ncom.malvex.photo.filters\n", "CrashModule.txt names queue and module");
    std::cout << "\n  CrashModule.txt (session, queue, module):\n\n" << module;
  }

  // The newest event, beside all of them.
  void Photograph(const std::string& path) {
    const std::string count = std::to_string(sandbox_.Received().size());
    demo::Browser browser(1200, 760);
    browser.Open(sandbox_.Page() + "#" + count);
    Expect(browser.Await("$$('#rows .row').length == " + count + " && $('#detail h2') != null"),
           "the page shows every event");
    browser.Photograph(path);
    std::cout << "The page is in " << path << std::endl;
  }

  HostRun StartHost(const std::map<int, std::string>& elements) {
    HostRun run = sandbox_.StartWatchedHost({.elements = elements});
    Tell("host", "process " + std::to_string(run.host.Id()) + " started the daemon, process " +
                     std::to_string(run.daemon.Id()));
    const auto messages = run.Messages();
    shownMessages_ = std::distance(messages.begin(), std::find(messages.begin(), messages.end(), "runOnce"));
    return run;
  }

  void LiveAWhile(HostRun& run) { FollowFor(1500ms, run); }

  void Crash(HostRun& run) {
    run.host.Say("crash");
    Expect(run.host.AwaitEnd().has_value(), "the host died");
    Tell("host", "died of SIGSEGV");
  }

  // What the daemon counts as a process that writes reports.
  demo::Program StartReportWriter() {
    const auto program = sandbox_.Folder() / "ReportCrash";
    std::filesystem::copy_file("/usr/bin/sleep", program);
    Tell("system", "a process named ReportCrash runs");
    return sandbox_.StartProgram({program, "600"}, "ReportCrash.out");
  }

  void PutSystemReport(const HostRun& run, const std::string& name) {
    sandbox_.Put(sandbox_.Reports() / name, demo::SystemReport(run.host.Id()));
    Tell("system", "wrote " + name);
  }

  // Tells what the daemon and the service do until `done` or the deadline.
  void Follow(HostRun& run, std::chrono::milliseconds deadline, const std::function<bool()>& done) {
    static_cast<void>(demo::Eventually(
        [&] {
          const bool last = done();
          TellNews(run);
          return last;
        },
        deadline));
  }

  void FollowFor(std::chrono::milliseconds time, HostRun& run) {
    Follow(run, time, [] { return false; });
  }

  void FollowToItsEnd(HostRun& run) {
    Follow(run, demo::patience, [&] { return run.daemon.Status().has_value(); });
    const auto status = run.daemon.Status();
    if (status) Tell("daemon", "ended with status " + std::to_string(WEXITSTATUS(*status)));
    Expect(status == 0, "the daemon ended with status 0");
  }

  void TellNews(const HostRun& run) {
    const auto messages = run.Messages();
    for (; shownMessages_ < std::ssize(messages); ++shownMessages_) {
      const std::string& message = messages.at(static_cast<std::size_t>(shownMessages_));
      // Written at every look into a folder, and for a session at every step.
      const bool wordy =
          message.find("DiagnosticPath") != std::string::npos || message.starts_with("GetGlimmerSessionID");
      if (!wordy) Tell("daemon", message);
    }
    const auto receipts = sandbox_.Received();
    for (; shownReceipts_ < receipts.size(); ++shownReceipts_) {
      Tell("service", "got an event, answers " + std::to_string(receipts[shownReceipts_].status));
    }
  }

  void Tell(const char* who, std::string what) {
    const std::string home = sandbox_.Folder() / "home";
    for (std::size_t at = 0; (at = what.find(home)) != std::string::npos;) what.replace(at, home.size(), "~");
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin_;
    std::printf("  %6.2f s  %-8s %s\n", time.count(), who, what.c_str());
    std::fflush(stdout);
  }

  demo::Receipt LastReceipt() const {
    const auto receipts = sandbox_.Received();
    return receipts.empty() ? demo::Receipt() : receipts.back();
  }

  void ExpectDelivered(const std::string& kind) {
    const demo::Receipt receipt = LastReceipt();
    Expect(receipt.status == 200, "the service took the event");
    Expect(receipt.problems.empty(), "the service had nothing to object to");
    Expect(receipt.Data("event.value") == kind, "the event is " + kind);
    Expect(sandbox_.QueuedEvents().empty(), "the queue is empty");
    std::cout << "\n  The event as the service received it:\n\n";
    PrintObject(receipt.event, "    ");
  }

  void ExpectReporter(const std::string& kind) {
    Expect(demo::Eventually([this] { return sandbox_.ReporterArguments().has_value(); }),
           "a crash reporter was started");
    const auto arguments = sandbox_.ReporterArguments().value_or(std::vector<std::string>());
    const bool complete = arguments.size() == std::size(reporterArgumentNames);
    Expect(complete, "the crash reporter got 24 arguments");
    if (!complete) return;
    Expect(arguments[13] == kind, "the kind of report is " + kind);
    std::cout << "\n  The crash reporter's arguments:\n\n";
    for (std::size_t at = 0; at < arguments.size(); ++at) {
      std::printf("    %2zu  %-17s \"%s\"\n", at + 1, reporterArgumentNames[at], arguments[at].c_str());
    }
  }

  void ExpectReporterArgument(std::size_t at, const std::string& text) {
    const auto arguments = sandbox_.ReporterArguments().value_or(std::vector<std::string>());
    Expect(at < arguments.size() && arguments[at] == text, std::string(reporterArgumentNames[at]) + " is " + text);
  }

  void Expect(bool happened, const std::string& what) {
    if (happened) return;
    ++failures_;
    std::cout << "  DID NOT HAPPEN: " << what << std::endl;
  }

  const Options options_;
  demo::Sandbox sandbox_;
  std::chrono::steady_clock::time_point begin_;
  std::ptrdiff_t shownMessages_ = 0;
  std::size_t shownReceipts_ = 0;
  int failures_ = 0;
};

}  // namespace

int main(int argc, char** argv) try {
  Options options;
  for (int at = 1; at < argc; ++at) {
    const std::string argument = argv[at];
    if (argument == "--page") {
      options.staysWithPage = true;
    } else if (argument == "--screenshot" && at + 1 < argc) {
      options.screenshot = argv[++at];
    } else {
      throw std::invalid_argument("not understood: " + argument);
    }
  }
  return Demonstration(options).Play() ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << "Demo: " << error.what() << '\n';
  return 2;
}
