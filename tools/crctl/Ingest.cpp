// The verb that runs the ingest service until it is told to end.
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <system_error>
#include <variant>

#include "platform/Files.h"
#include "platform/Processes.h"
#include "platform/Users.h"
#include "support/Json.h"
#include "support/Paths.h"
#include "support/Text.h"
#include "tools/crctl/EventStore.h"
#include "tools/crctl/IngestService.h"
#include "tools/crctl/Printable.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

using platform::Dictionary;
using platform::Value;

// What this service can be told to answer.
constexpr int lowestStatus = 200;
constexpr int highestStatus = 599;
constexpr int longestDelay = 600'000;

std::optional<int> Number(std::string_view text, int lowest, int highest) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && number >= lowest && number <= highest ? std::optional(number) : std::nullopt;
}

// Answers SIGINT and SIGTERM with a readable descriptor, in every thread begun from now on.
class EndSignals {
 public:
  EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    file_ = signalfd(-1, &signals, SFD_CLOEXEC);
  }
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;
  ~EndSignals() { close(file_); }
  [[nodiscard]] int File() const { return file_; }

 private:
  int file_ = -1;
};

// Lines for standard output, from any thread.
class Printer {
 public:
  explicit Printer(bool asJson) : asJson_(asJson) {}

  void Print(const std::string& text, const Dictionary& object) {
    const std::lock_guard lock(mutex_);
    const std::string printed = asJson_ ? std::get<std::string>(json::Write(Value(object))) : text;
    std::cout << Printable(printed, LineBreaks::kept) << std::endl;
  }
  void PrintLine(const std::string& text) {
    const std::lock_guard lock(mutex_);
    std::cout << Printable(text) << std::endl;
  }

 private:
  const bool asJson_;
  std::mutex mutex_;
};

std::string TextMember(const Dictionary& record, const char* key) {
  const auto* text = record.Find(key)->As<std::string>();
  return text == nullptr || text->empty() ? "-" : Printable(*text);
}

std::string Summary(const Dictionary& record) {
  const auto& problems = *record.Find("problems")->As<platform::Array>();
  std::string summary = TextMember(record, "received") + "  " +
                        std::to_string(*record.Find("status")->As<std::int64_t>()) + "  " + TextMember(record, "kind") +
                        "  " + TextMember(record, "app");
  for (const Value& problem : problems) summary += "\n    " + Printable(*problem.As<std::string>());
  return summary;
}

std::string DefaultEventsFile() {
  const auto state = platform::Environment("XDG_STATE_HOME");
  const bool isNamed = state && state->starts_with('/');
  const std::string base = isNamed ? *state : paths::Join(platform::HomeFolder().value_or("~"), ".local/state");
  return paths::Join(paths::Join(base, "crctl"), "events.jsonl");
}

// What a line of standard input tells the service; false when it is not understood.
bool Obey(const std::string& line, ingest::IngestService& service) {
  const std::size_t blank = line.find(' ');
  const std::string verb = line.substr(0, blank);
  const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
  if (verb == "delay") {
    const auto delay = Number(value, 0, longestDelay);
    if (delay) service.AnswerAfter(std::chrono::milliseconds(*delay));
    return delay.has_value();
  }
  std::vector<int> statuses;
  for (const std::string_view piece : text::Split(value, ',')) {
    const auto status = Number(piece, lowestStatus, highestStatus);
    if (verb != "status" || !status) return false;
    statuses.push_back(*status);
  }
  service.AnswerWith(std::move(statuses));
  return true;
}

// Standard input, as the lines come.
class Commands {
 public:
  // Obeys what is there now; false at the end.
  bool Obey(ingest::IngestService& service, Printer& printer) {
    std::array<char, 4096> bytes{};
    const ssize_t size = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (size < 0 && errno == EINTR) return true;
    if (size <= 0) return false;
    pending_.append(bytes.data(), static_cast<std::size_t>(size));
    for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1)) {
      const std::string line = pending_.substr(0, end);
      if (crctl::Obey(line, service)) {
        printer.PrintLine(line);
      } else {
        std::cerr << "crctl: not understood: " << Printable(line) << std::endl;
      }
    }
    return true;
  }

 private:
  std::string pending_;
};

void ServeUntilTold(ingest::IngestService& service, Printer& printer, const EndSignals& signals, bool takesCommands) {
  Commands commands;
  std::array<pollfd, 2> inputs = {pollfd{.fd = signals.File(), .events = POLLIN, .revents = 0},
                                  pollfd{.fd = takesCommands ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0}};
  for (;;) {
    if (poll(inputs.data(), inputs.size(), -1) < 0) continue;
    if (inputs[0].revents != 0) return;
    if (inputs[1].revents != 0 && !commands.Obey(service, printer)) return;
  }
}

Answer CannotOpen(const std::string& path, std::error_code error) {
  const bool isTaken = error == std::errc::device_or_resource_busy;
  return Failed(path + ": " + (isTaken ? "another ingest service keeps its events there" : error.message()));
}

}  // namespace

Answer ServeIngest(const IngestChoice& choice, bool asJson) {
  const std::string path = choice.events.value_or(DefaultEventsFile());
  if (!choice.events) {
    if (const auto error = platform::MakeFolders(paths::Parent(path))) return CannotOpen(path, error);
  }
  const EndSignals signals;
  auto store = ingest::EventStore::Open(path);
  if (!store) return CannotOpen(path, store.Error());
  for (const std::size_t line : (*store)->SkippedLines()) {
    std::cerr << Line("crctl: " + path + ": line " + std::to_string(line) + " is no whole event and is left out");
  }

  std::optional<ingest::Certificate> certificate;
  if (!choice.tls.empty()) certificate = {.path = choice.tls.at(0), .keyPath = choice.tls.at(1)};
  Printer printer(asJson);
  bool isFullTold = false;
  const auto take = [&](const Dictionary& record) {
    printer.Print(Summary(record), record);
    if (isFullTold || !(*store)->HasDropped()) return;
    isFullTold = true;
    std::cerr << Line("crctl: " + path + " has grown to its limit: its oldest events make room for new ones");
  };
  ingest::IngestService service(**store, certificate, take);
  if (choice.status) service.AnswerWith({*choice.status});
  if (const auto why = service.Start(choice.port)) return Failed(*why);
  const std::string origin = service.Origin();
  const Dictionary facts = {{"url", origin + "/ingest"},
                            {"page", origin + "/"},
                            {"file", path},
                            {"events", Value(std::int64_t((*store)->Last()))}};
  printer.Print("CRDAEMON_INGEST_URL=" + origin + "/ingest\npage: " + origin + "/\nevents: " + path + " (" +
                    std::to_string((*store)->Last()) + " so far)",
                facts);
  ServeUntilTold(service, printer, signals, choice.takesCommands);
  return {};
}

}  // namespace crctl
