// crctl: what a person at a terminal wants of CRDaemon. Here is how it is told; what it does stands in Verbs.h.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <variant>

#include "CRDaemon/ProcessValues.h"
#include "support/Json.h"
#include "tools/crctl/ErrorLines.h"
#include "tools/crctl/Printable.h"
#include "tools/crctl/Verbs.h"

namespace {

using crctl::Answer;

enum ExitStatus { well = 0, notWell = 1, usage = 2 };

constexpr char jsonHelp[] = "With --json it prints one JSON object.";

// Where the command line goes.
struct Options {
  bool json = false;
  std::function<Answer()> verb;
  crctl::Subject subject;
  std::vector<std::string> ids;
  bool onlyName = false;
  crctl::ReportSource report;
  crctl::StoredChoice stored;
  std::string notification;
  std::int32_t host = 0;
  std::vector<std::string> members;
  bool append = false;
  std::optional<std::int32_t> process;
  crctl::IngestChoice ingest;
};

CLI::App* AddVerb(CLI::App& group, Options& options, const char* name, const char* help, std::function<Answer()> verb) {
  CLI::App* added = group.add_subcommand(name, help);
  added->fallthrough()->footer(jsonHelp);
  added->callback([&options, verb = std::move(verb)] { options.verb = verb; });
  return added;
}

CLI::App& AddGroup(CLI::App& app, const char* name, const char* help) {
  CLI::App* group = app.add_subcommand(name, help);
  group->fallthrough()->require_subcommand(1)->footer(jsonHelp);
  return *group;
}

void AddDoctor(CLI::App& app, Options& options) {
  CLI::App* doctor = AddVerb(app, options, "doctor", "Look for everything that can keep a report from arriving",
                             [&options] { return crctl::Doctor(options.subject); });
  doctor->add_option("--app", options.subject.application, "Also look at the daemons of this application");
  doctor->add_option("--pid", options.subject.host, "Also look at the daemon of the host with this process id");
  doctor->add_option("--reporter", options.subject.reporter, "Also look at this crash reporter executable");
}

void AddQueue(CLI::App& app, Options& options) {
  CLI::App& queue = AddGroup(app, "queue", "Events that wait to be posted");
  AddVerb(queue, options, "list", "List the events", crctl::ListQueue);
  AddVerb(queue, options, "show", "Print one event", [&options] { return crctl::ShowEvent(options.ids.front()); })
      ->add_option("ID", options.ids, "As queue list prints it")
      ->required()
      ->expected(1);
  AddVerb(queue, options, "post", "Post events now; those that the service does not take stay", [&options] {
    return crctl::PostEvents(options.ids);
  })->add_option("ID", options.ids, "As queue list prints it; none: all events");
  AddVerb(queue, options, "expire", "Delete files that are older than 30 days, as each run of the daemon does",
          [&options] { return crctl::ExpireQueue(options.onlyName); })
      ->add_flag("--dry-run", options.onlyName, "Only name them");
}

void AddConvert(CLI::App& app, Options& options) {
  crctl::ReportSource& report = options.report;
  CLI::App* convert = AddVerb(app, options, "convert", "Print what would be posted for a report, without posting it",
                              [&report] { return crctl::ConvertReport(report); });
  convert->add_option("REPORT", report.path, "A crash, signal or hang report")->required();
  convert->add_option("--type", report.type, "0 system crash, 1 signal, 2 hang, else others")->capture_default_str();
  convert->add_option("--app", report.application, "Name of the application");
  convert->add_option("--version", report.version, "Its version");
  convert->add_option("--reporter-version", report.reporterVersion, "Version of the crash reporter");
  convert->add_option("--session", report.session, "Analytics session");
  convert->add_option("--user", report.user, "GUID of the signed-in user");
}

void AddStored(CLI::App& app, Options& options) {
  crctl::StoredChoice& choice = options.stored;
  CLI::App& stored = AddGroup(app, "stored", "Which report was handled last, for each product build");
  AddVerb(stored, options, "list", "List the records", crctl::ListStored);
  CLI::App* forget = AddVerb(stored, options, "forget", "Set records to -1, no report, without removing them",
                             [&choice] { return crctl::ForgetStored(choice); });
  auto* which = forget->add_option_group("which")->require_option(1);
  CLI::Option* application = which->add_option("--app", choice.application, "Name of the application");
  which->add_option("--key", choice.keys, "Key of a record, as stored list prints it");
  which->add_flag("--all", choice.all, "All records");
  forget->add_option("--version", choice.version, "Product version, or the application's where it has none")
      ->needs(application);
  forget->add_option("--build", choice.build, "Product build; left out: of a product without one")->needs(application);
}

void AddNotify(CLI::App& app, Options& options) {
  CLI::App* notify = AddVerb(app, options, "notify", "Post a notification about a host, as the host would",
                             [&options] { return crctl::Notify(options.notification, options.host, options.members); });
  notify->add_option("NAME", options.notification, "appTerminatedNormally, exceptionDeliveryCompleteion, ...")
      ->required();
  notify->add_option("--pid", options.host, "Process id of the host")->required()->check(CLI::PositiveNumber);
  notify->add_option("--key", options.members, "KEY=VALUE, a further text to go with it; may be repeated");
}

void AddLog(CLI::App& app, Options& options) {
  CLI::App& log = AddGroup(app, "log", "The debug log of daemons");
  AddVerb(log, options, "on", "Turn it on for daemons started from now on", [&options] {
    return crctl::TurnLogOn(options.append);
  })->add_flag("--append", options.append, "Keep an older log of the same name");
  AddVerb(log, options, "off", "Turn it off for daemons started from now on; logs stay", crctl::TurnLogOff);
  AddVerb(log, options, "show", "Print the newest log", [&options] {
    return crctl::ShowLog(options.process);
  })->add_option("--pid", options.process, "The newest of this process, daemon or host");
  AddVerb(log, options, "follow", "Print the lines that daemons write from now on, until interrupted",
          [&options] { return crctl::FollowLogs(options.json); });
}

void AddIngest(CLI::App& app, Options& options) {
  crctl::IngestChoice& choice = options.ingest;
  CLI::App* ingest = AddVerb(app, options, "ingest", "Receive events on this machine, check and show them",
                             [&options] { return crctl::ServeIngest(options.ingest, options.json); });
  ingest->footer("With --json it prints one JSON object a line: where it is, then each event.");
  ingest->add_option("--port", choice.port, "Port on the loopback interface; 0: any that is free")
      ->capture_default_str()
      ->check(CLI::Range(0, 65535));
  ingest->add_option("--tls", choice.tls, "Certificate and key, two PEM files; without it, plain HTTP")
      ->type_name("CERT KEY")
      ->expected(2);
  ingest->add_option("--events", choice.events, "File that keeps the events");
  ingest->add_option("--fail", choice.status, "Answer events with this status")->check(CLI::Range(400, 599));
  ingest->add_flag("--control", choice.takesCommands,
                   "Take commands from standard input, status LIST and delay MILLISECONDS, and end with it");
}

bool Print(const Answer& answer, bool asJson) {
  if (!asJson) {
    std::cout << crctl::Printable(answer.text, crctl::LineBreaks::kept) << std::flush;
    return true;
  }
  auto written = json::Write(platform::Value(answer.json));
  if (const auto* error = std::get_if<json::Error>(&written)) {
    std::cerr << crctl::Line("crctl: " + error->description);
    return false;
  }
  std::cout << crctl::Line(std::get<std::string>(written)) << std::flush;
  return true;
}

ExitStatus Run(const Options& options) {
  crctl::ErrorLines& errorLines = crctl::ErrorLines::Get();
  ProcessWide() = InitialProcessValues();
  const Answer answer = options.verb();
  for (const std::string& line : errorLines.Take()) {
    if (answer.error.empty()) std::cerr << crctl::Line("crctl: " + line);
  }
  const bool printed = answer.json.empty() || Print(answer, options.json);
  if (!answer.error.empty()) std::cerr << crctl::Line("crctl: " + answer.error);
  return answer.isWell && printed ? well : notWell;
}

}  // namespace

int main(int argc, char** argv) try {
  // A write without a reader, or beyond the limit of a file's size, then fails as on a full disk.
  for (const int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
  CLI::App app("Looks after CRDaemon: why no report arrives, what is queued, what it remembers", "crctl");
  Options options;
  app.set_version_flag("--version", std::string("crctl ") + CRCTL_VERSION);
  app.add_flag("--json", options.json, "Print one JSON object");
  app.require_subcommand(1);
  AddDoctor(app, options);
  AddQueue(app, options);
  AddConvert(app, options);
  AddStored(app, options);
  AddNotify(app, options);
  AddLog(app, options);
  AddIngest(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::ostringstream help;
    std::ostringstream complaint;
    const int status = app.exit(error, help, complaint);
    std::cout << crctl::Printable(help.str(), crctl::LineBreaks::kept);
    std::cerr << crctl::Printable(complaint.str(), crctl::LineBreaks::kept);
    return status == 0 ? well : usage;
  }
  return Run(options);
} catch (const std::exception& error) {
  std::cerr << crctl::Line(std::string("crctl: ") + error.what());
  return notWell;
}
