#include "platform/linux/ProcessTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "platform/Processes.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/Listing.h"

namespace platform {
namespace {

constexpr std::size_t shortNameBytes = 15;
constexpr std::size_t startField = 19;  // of /proc/PID/stat, from the state (its field 3) on
constexpr std::size_t exitStatusField = 49;
constexpr auto tick = std::chrono::milliseconds(10);  // as Linux counts them for programs
constexpr std::size_t typicalProcesses = 256;
constexpr std::string_view deletedMark = " (deleted)";

int ProcFolder() {
  static const Descriptor folder(open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC));
  return folder.Number();
}

// What a file of /proc gives at the first read: a whole "stat", two arguments of ordinary length. More room would cost
// the waiting daemon pages of stack.
std::string ReadStart(const std::string& name) {
  const Descriptor file(openat(ProcFolder(), name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return {};
  std::array<char, 2048> bytes;
  const ssize_t count = read(file.Number(), bytes.data(), bytes.size());
  return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
}

std::string_view Field(std::string_view line, std::size_t index) {
  for (; index > 0 && !line.empty(); --index) line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
  return line.substr(0, line.find_first_of(" \n"));
}

std::optional<std::int64_t> NumberIn(std::string_view line, std::size_t index) {
  const std::string_view field = Field(line, index);
  std::int64_t number = 0;
  const auto parsed = std::from_chars(field.data(), field.data() + field.size(), number);
  return parsed.ec == std::errc() ? std::optional(number) : std::nullopt;
}

// Other users' processes read as 0 there.
bool MaySeeExitStatus(const std::string& processFolder) {
  struct stat status {};
  if (geteuid() == 0) return true;
  return fstatat(ProcFolder(), processFolder.c_str(), &status, 0) == 0 && status.st_uid == geteuid();
}

std::string_view BaseName(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

// A script's program is its interpreter, which is also the first argument; the script is the second.
std::string WholeName(const std::string& processFolder, const std::string& shortName) {
  const std::string executable = ExecutableOf(processFolder);
  if (BaseName(executable).starts_with(shortName)) return std::string(BaseName(executable));
  const std::string commandLine = ReadStart(processFolder + "/cmdline");
  const std::string_view arguments = commandLine;
  const std::string_view first = arguments.substr(0, arguments.find('\0'));
  const std::string_view rest = arguments.substr(std::min(first.size() + 1, arguments.size()));
  for (const std::string_view argument : {first, rest.substr(0, rest.find('\0'))}) {
    if (BaseName(argument).starts_with(shortName)) return std::string(BaseName(argument));
  }
  return shortName;
}

}  // namespace

std::optional<ProcessEntry> ReadProcess(std::int32_t processId) {
  const std::string folder = std::to_string(processId);
  const std::string line = ReadStart(folder + "/stat");
  // The name may hold anything, parentheses included.
  const std::size_t nameBegin = line.find('(') + 1;
  const std::size_t nameEnd = line.rfind(") ");
  if (nameBegin == 0 || nameEnd == std::string::npos || nameEnd < nameBegin) return std::nullopt;
  ProcessEntry entry;
  entry.shortName = line.substr(nameBegin, nameEnd - nameBegin);
  const std::string_view fields = std::string_view(line).substr(nameEnd + 2);
  entry.isGone = fields.starts_with('Z') || fields.starts_with('X');
  entry.started = tick * NumberIn(fields, startField).value_or(0);
  const auto status = NumberIn(fields, exitStatusField);
  if (entry.isGone && status && (*status != 0 || MaySeeExitStatus(folder)))
    entry.exitStatus = static_cast<int>(*status);
  return entry;
}

std::string ProcessName(std::int32_t processId) {
  auto entry = ReadProcess(processId);
  if (!entry || entry->isGone) return {};
  const bool isCut = entry->shortName.size() == shortNameBytes;
  return isCut ? WholeName(std::to_string(processId), entry->shortName) : std::move(entry->shortName);
}

std::vector<std::string> ProcessNames() {
  Listing listing(Descriptor(openat(ProcFolder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  std::vector<std::string> names;
  names.reserve(typicalProcesses);
  while (const auto name = listing.Next()) {
    std::int32_t id = 0;
    const char* end = name->data() + name->size();
    if (std::from_chars(name->data(), end, id).ptr != end) continue;
    if (std::string processName = ProcessName(id); !processName.empty()) names.push_back(std::move(processName));
  }
  return names;
}

std::string ExecutableOf(const std::string& processId) {
  std::array<char, 2048> bytes;
  const ssize_t count = readlinkat(ProcFolder(), (processId + "/exe").c_str(), bytes.data(), bytes.size());
  std::string path(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  if (path.ends_with(deletedMark)) path.resize(path.size() - deletedMark.size());
  return path;
}

}  // namespace platform
