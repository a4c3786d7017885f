#include "tools/crctl/DebugLog.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <string_view>
#include <variant>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Users.h"
#include "support/AtomicFile.h"
#include "support/FixedNames.h"
#include "support/Json.h"
#include "support/Paths.h"
#include "support/Text.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

using platform::Array;
using platform::FileKind;
using platform::Time;
using platform::Value;

constexpr std::chrono::milliseconds pause{100};
constexpr char appendSetting[] = "append=1\n";
constexpr char putAside[] = ".off";  // settings that somebody wrote into the marker file

std::string LogFolder() { return paths::Parent(MarkerPath()); }

std::string LogPrefix() { return "CRLog-"; }

// The clock that stamps files stands still for milliseconds: several logs may be of one moment.
std::multimap<Time, std::string> LogsByAge() {
  std::multimap<Time, std::string> logs;
  auto folder = platform::Folder::Open(LogFolder());
  if (!folder) return logs;
  while (const auto name = folder->Next()) {
    if (!name->starts_with(LogPrefix()) || folder->KindOf(*name) != FileKind::regular) continue;
    if (const auto created = folder->CreationDate(*name)) logs.emplace(*created, paths::Join(LogFolder(), *name));
  }
  return logs;
}

// A daemon's log names it in its name, and its host in one of the first lines.
bool IsOf(const std::string& path, std::int32_t process) {
  const std::string id = std::to_string(process);
  if (paths::LastComponent(path).ends_with("-" + id + ".txt")) return true;
  const auto bytes = platform::ReadFile(path, platform::reportLimitBytes);
  return bytes && text::Contains(*bytes, "VALUE:Parent App Process ID: " + id + " |");
}

std::optional<std::string> NewestLog(const std::optional<std::int32_t>& process) {
  const auto logs = LogsByAge();
  const auto isWanted = [&process](const auto& log) { return !process || IsOf(log.second, *process); };
  const auto newest = std::find_if(logs.rbegin(), logs.rend(), isWanted);
  return newest == logs.rend() ? std::nullopt : std::optional(newest->second);
}

// One log that is being written.
class FollowedLog {
 public:
  enum class Start { atItsBegin, atItsEnd };

  FollowedLog(const std::string& path, Start start) : file_(path, std::ios::binary) {
    if (start == Start::atItsEnd) file_.seekg(0, std::ios::end);
  }

  // The next whole line; none until it is there.
  std::optional<std::string> Next() {
    file_.clear();
    std::string piece;
    std::getline(file_, piece);
    line_ += piece;
    if (file_.eof() || file_.fail()) return std::nullopt;
    return std::exchange(line_, {});
  }

 private:
  std::ifstream file_;
  std::string line_;
};

std::string Printed(const std::string& path, const std::string& line, bool asJson) {
  if (!asJson) return Line(line);
  return Line(std::get<std::string>(json::Write(Value(platform::Dictionary{{"path", path}, {"line", line}}))));
}

Answer Told(const std::string& state, const std::string& text) {
  return {.text = text + "\n", .json = {{"log", state}, {"marker", MarkerPath()}}, .error = {}};
}

Answer FailedOn(const std::string& path, std::error_code error) { return Failed(path + ": " + error.message()); }

}  // namespace

std::string MarkerPath() {
  return paths::Join(platform::HomeFolder().value_or("~"), "Library") + names::debugLogs + names::markerFile;
}

Answer TurnLogOn(bool append) {
  const std::string marker = MarkerPath();
  const std::string aside = marker + putAside;
  if (platform::KindOf(marker) != FileKind::absent && !append) return Told("on", "The debug log is on already.");
  if (const auto error = platform::MakeFolders(LogFolder())) return FailedOn(LogFolder(), error);
  const auto settings = platform::ReadFile(aside, platform::smallFileLimitBytes);
  const std::string content = append ? appendSetting : settings ? *settings : "";
  if (const auto error = WriteAtomically(marker, content)) return FailedOn(marker, error);
  if (settings) static_cast<void>(platform::RemoveFile(aside));
  return Told("on", "The debug log is on, for daemons started from now on: " + LogFolder());
}

Answer TurnLogOff() {
  const std::string marker = MarkerPath();
  if (platform::KindOf(marker) == FileKind::absent) return Told("off", "The debug log is off already.");
  const auto settings = platform::ReadFile(marker, platform::smallFileLimitBytes);
  if (settings && !settings->empty()) {
    if (const auto error = WriteAtomically(marker + putAside, *settings)) return FailedOn(marker + putAside, error);
  }
  if (const auto error = platform::RemoveFile(marker)) return FailedOn(marker, error);
  return Told("off", "The debug log is off, for daemons started from now on.");
}

Answer ShowLog(const std::optional<std::int32_t>& process) {
  const auto path = NewestLog(process);
  if (!path) {
    return Failed("no debug log" + (process ? " of process " + std::to_string(*process) : "") + " in " + LogFolder() +
                  " (see: crctl log on)");
  }
  const auto bytes = platform::ReadFile(*path, platform::reportLimitBytes);
  if (!bytes) return FailedOn(*path, bytes.Error());
  Array lines;
  for (const std::string_view line : text::Split(*bytes, '\n')) lines.emplace_back(line);
  if (bytes->empty() || bytes->ends_with('\n')) lines.pop_back();
  return {.text = *bytes, .json = {{"path", *path}, {"lines", Value(std::move(lines))}}, .error = {}};
}

Answer FollowLogs(bool asJson) {
  std::map<std::string, FollowedLog> logs;
  auto start = FollowedLog::Start::atItsEnd;
  while (std::cout) {
    for (const auto& [created, path] : LogsByAge()) {
      FollowedLog& log = logs.try_emplace(path, path, start).first->second;
      while (const auto line = log.Next()) std::cout << Printed(path, *line, asJson);
    }
    std::cout.flush();
    start = FollowedLog::Start::atItsBegin;
    platform::SleepFor(pause);
  }
  return {};
}

}  // namespace crctl
