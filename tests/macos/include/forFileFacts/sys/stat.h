// The Mac's stat, told by this system's stat and statx. Only for the one source that reads these fields.
#pragma once
#include_next <sys/stat.h>
#define UF_IMMUTABLE 2U
struct MacStat : stat {
  timespec st_birthtimespec, st_mtimespec, st_ctimespec;
  unsigned st_flags;
};
inline int fstatat(int folder, const char* name, MacStat* status, int flags) {
  struct statx facts;
  if (fstatat(folder, name, static_cast<struct stat*>(status), flags) != 0) return -1;
  if (statx(folder, name, flags, STATX_BTIME | STATX_BASIC_STATS, &facts) != 0) return -1;
  // This system stamps files with the clock's last tick, up to 10 ms ago; the Mac with the clock.
  status->st_birthtimespec = {facts.stx_btime.tv_sec, facts.stx_btime.tv_nsec + 10'000'000};
  status->st_mtimespec = status->st_mtim;
  status->st_ctimespec = status->st_ctim;
  status->st_flags = (facts.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 ? UF_IMMUTABLE : 0;
  return 0;
}
#define stat MacStat
