#include "platform/macos/ProcessTable.h"

#include <sys/sysctl.h>
#include <sys/types.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "platform/macos/Check.h"

namespace platform {
namespace {

struct ProcessList {
  std::unique_ptr<kinfo_proc[]> records;
  std::size_t count = 0;
};

// What the kernel has about the table's size is out of date when the table is asked for: it grows. Then all begins
// anew.
int GetBSDProcessList(ProcessList& procList) {
  std::array<int, 3> name = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
  std::unique_ptr<kinfo_proc[]> result;
  std::size_t bytes = 0;
  int err = ENOMEM;
  while (err == ENOMEM) {
    Check(result == nullptr, "result == NULL");
    err = sysctl(name.data(), name.size(), nullptr, &bytes, nullptr, 0) == 0 ? 0 : errno;
    if (err != 0) break;
    result.reset(new (std::nothrow) kinfo_proc[bytes / sizeof(kinfo_proc) + 1]);
    if (result == nullptr) {
      err = ENOMEM;
      break;
    }
    err = sysctl(name.data(), name.size(), result.get(), &bytes, nullptr, 0) == 0 ? 0 : errno;
    if (err != 0) result.reset();
  }
  procList.records = std::move(result);
  procList.count = err == 0 ? bytes / sizeof(kinfo_proc) : 0;
  Check((err == 0) == (procList.records != nullptr), "(err == 0) == (*procList != NULL)");
  return err;
}

ProcessEntry ToEntry(const kinfo_proc& record) {
  const extern_proc& process = record.kp_proc;
  constexpr std::int64_t microseconds = 1'000'000;
  return {std::string(process.p_comm, strnlen(process.p_comm, sizeof process.p_comm)),
          process.p_starttime.tv_sec * microseconds + process.p_starttime.tv_usec, process.p_stat == SZOMB};
}

}  // namespace

std::vector<ProcessEntry> ReadProcesses() {
  ProcessList list;
  std::vector<ProcessEntry> entries;
  if (GetBSDProcessList(list) != 0) return entries;
  entries.reserve(list.count);
  for (std::size_t i = 0; i < list.count; ++i) entries.push_back(ToEntry(list.records[i]));
  return entries;
}

Result<std::optional<ProcessEntry>> ReadProcess(std::int32_t processId) {
  std::array<int, 4> name = {CTL_KERN, KERN_PROC, KERN_PROC_PID, processId};
  kinfo_proc record{};
  std::size_t bytes = sizeof record;
  // Of a process that does not exist it says nothing, with success.
  if (sysctl(name.data(), name.size(), &record, &bytes, nullptr, 0) != 0) {
    return std::error_code(errno, std::generic_category());
  }
  return bytes < sizeof record ? std::nullopt : std::optional(ToEntry(record));
}

}  // namespace platform
