#include "hostkit/posix/SignalReport.h"

#include <time.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <sys/random.h>
#endif

#include <chrono>

#include "hostkit/posix/Backtrace.h"
#include "hostkit/posix/HandlerFile.h"

namespace hostkit {
namespace {

// Too large for the stack of a handler, and used by one thread alone.
struct Located {
  Backtrace backtrace;
  struct Place {
    std::uintptr_t image;
    NameBuffer module;
  } places[framesLimit];
};
Located located;

constexpr struct {
  int signal;
  std::string_view name;
} signalNames[] = {
    {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGILL, "SIGILL"},       {SIGFPE, "SIGFPE"},
    {SIGABRT, "SIGABRT"}, {SIGTRAP, "SIGTRAP"}, {SIGSYS, "SIGSYS"},       {SIGHUP, "SIGHUP"},
    {SIGINT, "SIGINT"},   {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},     {SIGTERM, "SIGTERM"},
    {SIGXCPU, "SIGXCPU"}, {SIGXFSZ, "SIGXFSZ"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"},
};

std::string_view NameOf(int signal) {
  for (const auto& row : signalNames) {
    if (row.signal == signal) return row.name;
  }
  return "unknown signal";
}

constexpr std::size_t valueColumn = 17;

void PutKey(HandlerFile& file, std::string_view key) {
  file.Put(key);
  file.Put(":");
  file.PadTo(valueColumn);
}

// A key without a value would take away what the daemon knows better.
void PutLine(HandlerFile& file, std::string_view key, std::string_view value) {
  if (value.empty()) return;
  PutKey(file, key);
  file.PutForeign(value);
  file.Put("\n");
}

void PutDate(HandlerFile& file, std::time_t time) {
  using namespace std::chrono;
  const sys_seconds moment{seconds(time)};
  const auto midnight = floor<days>(moment);
  const year_month_day day(midnight);
  const hh_mm_ss clock(moment - midnight);
  const auto put = [&file](auto number, std::size_t digits, std::string_view end) {
    file.PutDecimal(static_cast<std::uint64_t>(number), digits);
    file.Put(end);
  };
  put(static_cast<int>(day.year()), 4, "-");
  put(static_cast<unsigned>(day.month()), 2, "-");
  put(static_cast<unsigned>(day.day()), 2, " ");
  put(clock.hours().count(), 2, ":");
  put(clock.minutes().count(), 2, ":");
  put(clock.seconds().count(), 2, " +0000");
}

void PutGuid(HandlerFile& file) {
  unsigned char bytes[16];
  if (getentropy(bytes, sizeof bytes) != 0) return;
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);
  const auto putDigit = [&file](unsigned nibble) { file.Put({&"0123456789ABCDEF"[nibble & 0xFU], 1}); };
  PutKey(file, "Crash GUID");
  for (std::size_t at = 0; at < sizeof bytes; ++at) {
    if (at == 4 || at == 6 || at == 8 || at == 10) file.Put("-");
    putDigit(bytes[at] >> 4U);
    putDigit(bytes[at]);
  }
  file.Put("\n");
}

// Whoever sent the signal; a fault is the application's own.
std::string_view Publisher(const ReportPlan& plan, const Death& death, NameBuffer& buffer) {
  const bool isSent = death.info->si_code <= 0 && death.info->si_pid > 0 && death.info->si_pid != plan.process;
  const std::string_view sender = isSent ? ProcessName(death.info->si_pid, buffer) : std::string_view();
  return sender.empty() ? plan.application : sender;
}

void PutHead(HandlerFile& file, const ReportPlan& plan, const Death& death) {
  PutKey(file, "Process");
  file.PutForeign(plan.application);
  file.Put(" [");
  file.PutDecimal(static_cast<std::uint64_t>(plan.process));
  file.Put("]\n");
  PutLine(file, "Version", plan.version);
  PutLine(file, "Code Type", plan.codeType);
  PutKey(file, "Signal Number");
  file.PutDecimal(static_cast<std::uint64_t>(death.signal));
  file.Put("\n");
  PutLine(file, "Exception Type", NameOf(death.signal));
  PutKey(file, "Exception Codes");
  file.PutHexadecimal(static_cast<std::uint32_t>(death.info->si_code), 8);
  file.Put(", ");
  file.PutHexadecimal(death.info->si_code > 0 ? reinterpret_cast<std::uintptr_t>(death.info->si_addr) : 0, 16);
  file.Put("\n");
  NameBuffer buffer;
  PutLine(file, "Publisher Process Name", Publisher(plan, death, buffer));
  PutLine(file, "User GUID", plan.userGuid);
  PutGuid(file);
  PutLine(file, "SkylanceSessionId", plan.sessionId);
  PutLine(file, "Malvex Crash Reporter Version", plan.reporterVersion);
  PutKey(file, "Date/Time");
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  PutDate(file, now.tv_sec);
  file.Put("\n");
  PutLine(file, "Launch Time", plan.launchTime);
  PutLine(file, "OS Version", plan.system);
}

std::string_view FileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

void Locate(const Image& image, void* /*unused*/) {
  const std::string_view name = FileName(image.path).substr(0, sizeof(NameBuffer) - 1);
  for (std::size_t frame = 0; frame < located.backtrace.count; ++frame) {
    const std::uintptr_t address = located.backtrace.addresses[frame];
    if (address < image.begin || address >= image.end) continue;
    located.places[frame].image = image.begin;
    located.places[frame].module[name.copy(located.places[frame].module, name.size())] = '\0';
  }
}

void PutBacktrace(HandlerFile& file, const Registers& registers) {
  FollowStack(registers, located.backtrace);
  ForEachImage(Locate, nullptr);
  NameBuffer name;
  file.Put("\nThread ");
  file.PutDecimal(static_cast<std::uint64_t>(ThreadNumber()));
  file.Put(" Crashed::  ");
  file.PutForeign(ThreadName(name));
  file.Put("\n");
  for (std::size_t frame = 0; frame < located.backtrace.count; ++frame) {
    const auto& place = located.places[frame];
    const std::uintptr_t address = located.backtrace.addresses[frame];
    file.PutDecimal(frame);
    file.PadTo(4);
    file.PutForeign(place.image == 0 ? "???" : place.module);
    file.PadTo(34);
    file.PutHexadecimal(address, 16);
    file.Put(" ");
    file.PutHexadecimal(place.image);
    file.Put(" + ");
    file.PutDecimal(address - place.image);
    file.Put("\n");
  }
}

void PutImage(const Image& image, void* context) {
  auto& file = *static_cast<HandlerFile*>(context);
  file.PutHexadecimal(image.begin, 16);
  file.Put(" - ");
  file.PutHexadecimal(image.end - 1, 16);
  file.Put(" ");
  file.PutForeign(FileName(image.path));
  file.Put(" ");
  file.PutForeign(image.path);
  file.Put("\n");
}

}  // namespace

void WriteReport(const ReportPlan& plan, const Death& death) {
  HandlerFile file(plan.temporary);
  PutHead(file, plan, death);
  PutBacktrace(file, RegistersOf(death.context));
  file.Put("\nBinary Images:\n");
  ForEachImage(PutImage, &file);
  file.KeepAs(plan.path);
}

void DiscardReport(const ReportPlan& plan) { unlink(plan.temporary); }

}  // namespace hostkit
