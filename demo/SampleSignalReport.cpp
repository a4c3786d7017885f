#include "demo/SampleSignalReport.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "platform/Clock.h"
#include "platform/System.h"
#include "support/Dates.h"

namespace sample {
namespace {

// Made while all is well. Reached by the handler, so never freed.
struct Prepared {
  std::string inTheMaking;
  std::string path;
  std::string head;
};
const Prepared* prepared = nullptr;

using DateText = std::array<char, sizeof "yyyy-MM-dd HH:mm:ss +0000">;

void PutTwoDigits(char* place, unsigned number) {
  place[0] = static_cast<char>('0' + number / 10);
  place[1] = static_cast<char>('0' + number % 10);
}

// In UTC and without libc, which may hold a lock of its own in a handler.
DateText DateOf(std::time_t time) {
  using std::chrono::floor;
  const std::chrono::sys_seconds moment{std::chrono::seconds(time)};
  const auto midnight = floor<std::chrono::days>(moment);
  const std::chrono::year_month_day day(midnight);
  const std::chrono::hh_mm_ss clock(moment - midnight);
  const auto year = static_cast<unsigned>(static_cast<int>(day.year()));

  DateText text{"0000-00-00 00:00:00 +0000"};
  PutTwoDigits(&text[0], year / 100);
  PutTwoDigits(&text[2], year % 100);
  PutTwoDigits(&text[5], static_cast<unsigned>(day.month()));
  PutTwoDigits(&text[8], static_cast<unsigned>(day.day()));
  PutTwoDigits(&text[11], static_cast<unsigned>(clock.hours().count()));
  PutTwoDigits(&text[14], static_cast<unsigned>(clock.minutes().count()));
  PutTwoDigits(&text[17], static_cast<unsigned>(clock.seconds().count()));
  return text;
}

bool Put(int file, std::string_view text) { return write(file, text.data(), text.size()) == std::ssize(text); }

// The signal comes again on return, and kills the process now that the handler is gone.
void WriteReport(int signal) {
  raise(signal);
  const int file = open(prepared->inTheMaking.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) return;
  const DateText date = DateOf(time(nullptr));
  const bool written = Put(file, prepared->head) && Put(file, "Date/Time:       ") && Put(file, date.data()) &&
                       Put(file, signal == SIGSEGV ? "\nException Type:  SIGSEGV\nSignal Number:   11\n"
                                                   : "\nException Type:  SIGTERM\nSignal Number:   15\n") &&
                       fsync(file) == 0;
  close(file);
  if (written) rename(prepared->inTheMaking.c_str(), prepared->path.c_str());
}

// As CRDaemon writes it into the name of the report.
std::string CleanHostName() {
  std::string name = platform::LocalHostName();
  std::replace(name.begin(), name.end(), ' ', '-');
  std::erase(name, '\'');
  return name;
}

}  // namespace

void ReportSignals(const std::string& application, const std::string& version, std::time_t launch) {
  const char* home = std::getenv("HOME");
  const std::string folder = std::string(home == nullptr ? "" : home) + "/Library/Logs/DiagnosticReports";
  std::filesystem::create_directories(folder);
  const std::string process = std::to_string(getpid());
  const std::string name =
      application + "_" + dates::FormatDay(platform::Now()) + "_" + process + "_" + CleanHostName();
  utsname system{};
  uname(&system);

  prepared = new Prepared{.inTheMaking = folder + "/." + name + ".new",
                          .path = folder + "/" + name + ".ips",
                          .head = "Process:         " + application + " [" + process + "]\n" +
                                  "Version:         " + version + "\n" + "OS Version:      Linux " + system.release +
                                  "\n" + "Publisher Process Name: " + application + "\n" +
                                  "Launch Time:     " + DateOf(launch).data() + "\n"};
  struct sigaction action {};
  action.sa_handler = WriteReport;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : {SIGSEGV, SIGTERM}) sigaction(signal, &action, nullptr);
}

}  // namespace sample
