#include "reliability/Trial.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <fstream>

namespace reliability {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double slowness = 30;
constexpr bool memoryIsItsOwn = false;
#elif defined(NDEBUG)
constexpr double slowness = 1;
constexpr bool memoryIsItsOwn = true;
#else
constexpr double slowness = 15;
constexpr bool memoryIsItsOwn = true;
#endif
constexpr double secondsAllowed = 2 * slowness;
constexpr unsigned secondsUntilHung = 120;

enum Exit : int { held = 0, answeredNo = 1, threw = 2, tookTooMuchMemory = 3 };

std::uint64_t PeakMemoryBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoull(line.substr(6)) << 10U;
  }
  return 0;
}

Exit Outcome(const std::function<bool()>& action, std::uint64_t memoryBytes) {
  const std::uint64_t before = PeakMemoryBytes();
  try {
    if (!action()) return answeredNo;
  } catch (const std::exception&) {
    return threw;
  }
  return memoryIsItsOwn && PeakMemoryBytes() > before + memoryBytes ? tookTooMuchMemory : held;
}

double SecondsOf(const rusage& usage) {
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

std::string FailureOf(const std::function<bool()>& action, std::uint64_t memoryBytes, int steps) {
  const pid_t child = fork();
  if (child < 0) return "no process to try it in";
  if (child == 0) {
    alarm(secondsUntilHung);
    _exit(Outcome(action, memoryBytes));
  }
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child) return "its process was lost";
  if (WIFSIGNALED(status))
    return WTERMSIG(status) == SIGALRM ? "hung" : "died by signal " + std::to_string(WTERMSIG(status));
  switch (WEXITSTATUS(status)) {
    case held:
      break;
    case answeredNo:
      return "wrong result";
    case threw:
      return "exception";
    case tookTooMuchMemory:
      return "too much memory";
    default:
      return "exit status " + std::to_string(WEXITSTATUS(status));
  }
  const double seconds = SecondsOf(usage);
  return seconds <= secondsAllowed * steps ? std::string() : "took " + std::to_string(seconds) + " s";
}

}  // namespace reliability
