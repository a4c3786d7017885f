// An application to try CRDaemon with. It starts the daemon as its own watcher, through the host kit, prints "daemon"
// and its process id, and then does what the lines of its standard input say:
//   report-signals  from now on a fault or a handled signal writes the host's own signal report
//   crash           dies of a segmentation fault
//   signal N        dies of that signal
//   exit N          ends with that status; so does the end of the input, with 0
//   notify NAME     posts that notification about itself on the session bus
// Given what the kit would refuse (fewer elements than all, another process id, a reporter that is not there), it
// starts the daemon without it.
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <crhost.hpp>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "demo/SampleElements.h"

namespace {

using demo::allElements;
using demo::processElement;
using demo::reporterElement;

struct Options {
  std::array<std::string, allElements> elements = demo::SampleElements();
  std::size_t count = allElements;

  [[nodiscard]] bool AreForTheKit() const {
    return count == allElements && elements[processElement] == std::to_string(getpid()) &&
           access(elements[reporterElement].c_str(), X_OK) == 0;
  }
};

[[noreturn]] void Usage() {
  std::cerr << "usage: SampleHost [--element N=VALUE]... [--elements COUNT] DAEMON REPORTER\n";
  std::exit(2);
}

Options ParseOptions(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2 || arguments.size() % 2 != 0) Usage();
  Options options;
  options.elements[demo::daemonElement] = arguments[arguments.size() - 2];
  options.elements[processElement] = std::to_string(getpid());
  options.elements[reporterElement] = arguments.back();
  for (std::size_t at = 0; at + 2 < arguments.size(); at += 2) {
    const std::string& value = arguments[at + 1];
    const std::size_t equals = value.find('=');
    if (arguments[at] == "--elements") {
      options.count = std::stoul(value);
    } else if (arguments[at] == "--element" && equals != std::string::npos) {
      options.elements.at(std::stoul(value)) = value.substr(equals + 1);
    } else {
      Usage();
    }
  }
  if (options.count == 0 || options.count > allElements) Usage();
  return options;
}

void Check(const crhost::Result& result) {
  if (!result) throw std::runtime_error(result.Text());
}

pid_t StartWithKit(const Options& options) {
  crhost::Options named;
  for (std::size_t at = 0; at < allElements; ++at) {
    if (at != processElement) named.Set(static_cast<crhost_option>(at), options.elements[at]);
  }
  Check(crhost::Start(named));
  return crhost_daemon_id();
}

pid_t StartWithoutKit(const Options& options) {
  std::vector<char*> arguments;
  for (std::size_t at = 0; at < options.count; ++at)
    arguments.push_back(const_cast<char*>(options.elements[at].c_str()));
  arguments.push_back(nullptr);
  pid_t daemon = -1;
  const int error = posix_spawn(&daemon, arguments[0], nullptr, nullptr, arguments.data(), environ);
  if (error != 0) throw std::system_error(error, std::generic_category(), options.elements[0]);
  return daemon;
}

// A real one, on a page that may not be touched.
void Crash() {
  void* page = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile char*>(page) = 1;
}

void Notify(const std::string& name) {
  if (name == "appTerminatedNormally") return Check(crhost::AnnounceNormalEnd());
  if (name == "exceptionDeliveryCompleteion") return Check(crhost::AnnounceExceptionDelivered());
  throw std::invalid_argument("unknown notification: " + name);
}

void Obey(const std::string& line) {
  const std::size_t blank = line.find(' ');
  const std::string verb = line.substr(0, blank);
  const std::string object = blank == std::string::npos ? "" : line.substr(blank + 1);
  if (verb == "report-signals") {
    Check(crhost::ReportSignals(CRHOST_FAULTS | CRHOST_HANDLED_SIGNALS));
  } else if (verb == "crash") {
    Crash();
  } else if (verb == "signal") {
    kill(getpid(), std::stoi(object));
  } else if (verb == "exit") {
    std::_Exit(std::stoi(object));
  } else if (verb == "notify") {
    Notify(object);
  } else {
    throw std::invalid_argument("unknown verb: " + verb);
  }
}

}  // namespace

int main(int argc, char** argv) try {
  const rlimit noCoreFile{0, 0};
  setrlimit(RLIMIT_CORE, &noCoreFile);
  const Options options = ParseOptions({argv + 1, argv + argc});
  const pid_t daemon = options.AreForTheKit() ? StartWithKit(options) : StartWithoutKit(options);
  std::cout << "daemon " << daemon << std::endl;
  for (std::string line; std::getline(std::cin, line);) Obey(line);
  return 0;
} catch (const std::exception& error) {
  std::cerr << "SampleHost: " << error.what() << '\n';
  return 2;
}
