// An application to try CRDaemon with. It starts the daemon as its own watcher, prints "daemon" and its process id, and
// then does what the lines of its standard input say:
//   report-signals  from now on a segmentation fault or SIGTERM writes the host's own signal report
//   crash           dies of a segmentation fault
//   signal N        dies of that signal
//   exit N          ends with that status; so does the end of the input, with 0
//   notify NAME     posts that notification about itself on the session bus
#include <sys/mman.h>
#include <sys/resource.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/SampleSignalReport.h"
#include "platform/Tasks.h"

namespace {

constexpr std::size_t allElements = 31;

struct Options {
  // What the daemon is started with; element 0 is its own path.
  std::array<std::string, allElements> elements = {"",
                                                   std::to_string(getpid()),
                                                   "Photo",
                                                   "4.2",
                                                   "/usr/share/icons/photo.png",
                                                   "",
                                                   "0",
                                                   "",
                                                   "",
                                                   "",
                                                   "",
                                                   "Photo quit unexpectedly.",
                                                   "4.2.0",
                                                   "b7",
                                                   "Photo",
                                                   "PhotoDesktop",
                                                   "Photo",
                                                   "0",
                                                   "1.0",
                                                   "0",
                                                   "",
                                                   "",
                                                   "2.1",
                                                   "1",
                                                   "20",
                                                   "0",
                                                   "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11",
                                                   "X86-64",
                                                   "0",
                                                   "subscription",
                                                   "1"};
  std::size_t count = allElements;
  std::time_t launch = std::time(nullptr);
};

[[noreturn]] void Usage() {
  std::cerr << "usage: SampleHost [--element N=VALUE]... [--elements COUNT] DAEMON REPORTER\n";
  std::exit(2);
}

Options ParseOptions(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2 || arguments.size() % 2 != 0) Usage();
  Options options;
  options.elements[0] = arguments[arguments.size() - 2];
  options.elements[5] = arguments.back();
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

// The daemon outlives this process: nothing ties the two together but the id that is passed.
void StartDaemon(const Options& options) {
  const auto* first = options.elements.data();
  const auto daemon = platform::StartTask(options.elements[0], {first + 1, first + options.count});
  if (!daemon) throw std::runtime_error("cannot start " + options.elements[0]);
  std::cout << "daemon " << *daemon << std::endl;
}

// A real one, on a page that may not be touched.
void Crash() {
  void* page = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile char*>(page) = 1;
}

void Check(int result) {
  if (result < 0) throw std::runtime_error("session bus: error " + std::to_string(-result));
}

void Notify(const std::string& name) {
  sd_bus* opened = nullptr;
  Check(sd_bus_open_user(&opened));
  const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus(opened, sd_bus_flush_close_unref);
  sd_bus_message* made = nullptr;
  Check(sd_bus_message_new_signal(bus.get(), &made, "/", "com.malvex.DistributedNotification", "Posted"));
  const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> message(made, sd_bus_message_unref);
  Check(sd_bus_message_append(made, "sa{ss}", name.c_str(), 1, "pid", std::to_string(getpid()).c_str()));
  Check(sd_bus_send(bus.get(), made, nullptr));
}

void Obey(const std::string& line, const Options& options) {
  const std::size_t blank = line.find(' ');
  const std::string verb = line.substr(0, blank);
  const std::string object = blank == std::string::npos ? "" : line.substr(blank + 1);
  if (verb == "report-signals") {
    sample::ReportSignals(options.elements[2], options.elements[3], options.launch);
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
  // A sanitizer's handler would turn the signal into an exit.
  std::signal(SIGSEGV, SIG_DFL);
  const Options options = ParseOptions({argv + 1, argv + argc});
  StartDaemon(options);
  for (std::string line; std::getline(std::cin, line);) Obey(line, options);
  return 0;
} catch (const std::exception& error) {
  std::cerr << "SampleHost: " << error.what() << '\n';
  return 2;
}
