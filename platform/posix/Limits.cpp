#include <sys/resource.h>

#include <algorithm>

#include "platform/Processes.h"

namespace platform {

std::uint64_t RaiseOpenFileLimit(std::uint64_t files) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= files) return limit.rlim_cur;
  rlimit raised = limit;
  raised.rlim_cur = std::min<rlim_t>(files, limit.rlim_max);
  return setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

}  // namespace platform
