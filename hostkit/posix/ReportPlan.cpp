#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>

#include "hostkit/posix/Machine.h"
#include "hostkit/posix/SignalReport.h"
#include "hostkit/posix/Utf8.h"
#include "support/FixedNames.h"

namespace hostkit {
namespace {

// Of a file name, on every file system that matters.
constexpr std::size_t nameLimitBytes = 255;

std::string DayOf(std::time_t time) {
  std::tm parts{};
  tzset();
  char text[16];
  return localtime_r(&time, &parts) == nullptr
             ? ""
             : std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d", &parts));
}

std::string DateOf(std::time_t time) {
  std::tm parts{};
  char text[32];
  if (gmtime_r(&time, &parts) == nullptr) return {};
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts)};
}

// As the daemon writes it into the name of the report, and so that it can stand in one.
std::string CleanHostName(std::size_t limitBytes) {
  std::string name = LocalHostName();
  std::replace(name.begin(), name.end(), ' ', '-');
  std::replace(name.begin(), name.end(), '/', '-');
  name.erase(std::remove(name.begin(), name.end(), '\''), name.end());
  std::string clean;
  for (std::string_view rest = name; !rest.empty();) {
    const std::size_t size = PrintableSize(rest);
    if (clean.size() + std::max<std::size_t>(size, 1) > limitBytes) break;
    clean += size == 0 ? "-" : rest.substr(0, size);
    rest.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return clean;
}

// The texts one after another, each ended by a NUL; counts while it has no memory.
class Arena {
 public:
  explicit Arena(char* memory) : memory_(memory) {}
  [[nodiscard]] const char* Copy(const std::string& text) {
    char* copy = memory_ == nullptr ? nullptr : memory_ + used_;
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    used_ += text.size() + 1;
    return copy == nullptr ? "" : copy;
  }
  [[nodiscard]] std::size_t UsedBytes() const { return used_; }

 private:
  char* memory_;
  std::size_t used_ = 0;
};

struct Texts {
  std::string folder;
  std::string temporary;
  std::string path;
  std::string launchTime;
  std::string system;
};

Texts TextsOf(const crhost_options& options) {
  const std::time_t now = std::time(nullptr);
  Texts texts{.folder = {},
              .temporary = {},
              .path = {},
              .launchTime = DateOf(LaunchTime().value_or(now)),
              .system = SystemName()};
  const auto library = UserLibrary();
  if (!library) return texts;
  const std::string extension = ReportExtension();
  std::string name = options[CRHOST_APP_NAME] + "_" + DayOf(now) + "_" + std::to_string(getpid()) + "_";
  const std::string ending = "." + extension;
  constexpr std::size_t dots = sizeof "..new";  // of the temporary file, around the name
  name += CleanHostName(nameLimitBytes - name.size() - ending.size() - dots);
  texts.folder = *library + "/" + names::diagnosticReports;
  texts.path = texts.folder + "/" + name + ending;
  // Without the extension of a report, the daemon passes over it.
  texts.temporary = texts.folder + "/." + name + ".new";
  return texts;
}

ReportPlan PlanIn(Arena& arena, const Texts& texts, const crhost_options& options) {
  return {.process = getpid(),
          .folder = arena.Copy(texts.folder),
          .temporary = arena.Copy(texts.temporary),
          .path = arena.Copy(texts.path),
          .application = arena.Copy(options[CRHOST_APP_NAME]),
          .version = arena.Copy(options[CRHOST_APP_VERSION]),
          .codeType = arena.Copy(options[CRHOST_CODE_TYPE]),
          .userGuid = arena.Copy(options[CRHOST_USER_GUID]),
          .sessionId = arena.Copy(options[CRHOST_SESSION_ID]),
          .reporterVersion = arena.Copy(options[CRHOST_REPORTER_VERSION]),
          .launchTime = arena.Copy(texts.launchTime),
          .system = arena.Copy(texts.system)};
}

}  // namespace

const ReportPlan* PlanReport(const crhost_options& options) {
  const Texts texts = TextsOf(options);
  Arena count(nullptr);
  static_cast<void>(PlanIn(count, texts, options));
  const std::size_t size = sizeof(ReportPlan) + count.UsedBytes();
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  Arena arena(static_cast<char*>(memory) + sizeof(ReportPlan));
  const auto* plan = new (memory) ReportPlan(PlanIn(arena, texts, options));
  mprotect(memory, size, PROT_READ);
  return plan;
}

}  // namespace hostkit
