#include <string>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Diagnosis.h"
#include "platform/Files.h"
#include "platform/Users.h"
#include "support/FixedNames.h"
#include "support/Paths.h"
#include "tools/crctl/Checks.h"
#include "tools/crctl/DebugLog.h"

namespace crctl {
namespace {

using platform::FileKind;

constexpr std::uint32_t ownerAll = 0700;
constexpr std::uint32_t writableByOthers = 0022;
constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20U;
constexpr std::int32_t neverSend = 2;

std::string Octal(std::uint32_t mode) {
  std::string text = "0000";
  for (std::size_t digit = text.size(); digit-- > 1; mode >>= 3U) text[digit] = static_cast<char>('0' + (mode & 7U));
  return text;
}

// The nearest folder on the way that is there.
std::string Existing(std::string path) {
  while (!path.empty() && platform::KindOf(path) == FileKind::absent) path = paths::Parent(path);
  return path;
}

Finding JudgeMissingFolder(const char* name, const std::string& path) {
  const std::string above = Existing(path);
  const auto access = platform::AccessOf(above);
  if (access && access->isWritable && access->isExecutable && platform::Folder::Open(above)) {
    return {name, State::ok, path + " is not there yet, and is made when it is needed", ""};
  }
  return {name, State::error, path + " is not there, and cannot be made in " + above,
          "make " + above + " a folder that this user can write to"};
}

Finding JudgeFolder(const char* name, const std::string& path) {
  const auto access = platform::AccessOf(path);
  const std::string seen = path + (access ? " is " + Octal(access->permissions) + ", of " + access->owner : "");
  if (!access || !access->isReadable || !access->isWritable || !access->isExecutable) {
    return {name, State::error, seen + ": this user cannot read and write it", "chmod u+rwx " + path};
  }
  if (!access->isOwn) return {name, State::warning, seen, "give it to this user: chown " + platform::UserName()};
  if ((access->permissions & writableByOthers) != 0) {
    return {name, State::warning, seen + ": others can put reports and events there", "chmod go-w " + path};
  }
  if ((access->permissions & ownerAll) != ownerAll) return {name, State::warning, seen, "chmod u+rwx " + path};
  return {name, State::ok, seen, ""};
}

Finding CheckFolder(const char* name, const std::string& path) {
  switch (platform::KindOf(path)) {
    case FileKind::absent:
      return JudgeMissingFolder(name, path);
    case FileKind::folder:
      return JudgeFolder(name, path);
    case FileKind::regular:
    case FileKind::other:
      break;
  }
  return {name, State::error, path + " is no folder", "move it out of the way"};
}

Finding CheckLibrary(const std::string& library) {
  if (library.starts_with('~')) {
    return {"library", State::error, library + " leads nowhere",
            platform::IsRootUser()
                ? "as root the daemon serves the user logged in at the console: log in there, or run "
                  "host and daemon as an ordinary user"
                : "set HOME"};
  }
  return CheckFolder("library", library);
}

Finding CheckSpace(const std::string& folder) {
  const std::string existing = Existing(folder);
  const auto space = platform::SpaceAt(existing);
  if (!space) return {"disk-space", State::error, existing + ": " + space.Error().message(), "check the disk"};
  const std::string seen = std::to_string(space->freeBytes / mebibyte) + " MiB free at " + existing;
  if (space->freeFiles == 0) return {"disk-space", State::error, seen + ", but no file can be made", "remove files"};
  const State state = JudgeFreeBytes(space->freeBytes);
  return {"disk-space", state, seen, state == State::ok ? "" : "make room: a report can take 64 MiB"};
}

Finding CheckPreferences(const std::string& path) {
  if (platform::KindOf(path) == FileKind::absent) {
    return {"preferences", State::ok, path + " is not there yet: nothing is chosen, nothing remembered", ""};
  }
  if (const auto bytes = platform::ReadFile(path, platform::smallFileLimitBytes); !bytes) {
    return {"preferences", State::error, path + ": " + bytes.Error().message(),
            "make it a regular file that this user can read: nothing can be remembered"};
  }
  if (!preferences::Read()) {
    return {"preferences", State::error, path + " is no property list",
            "remove or repair it: the daemon puts it aside and begins a new one"};
  }
  const auto access = platform::AccessOf(path);
  if (!access) return {"preferences", State::ok, path, ""};
  const std::string seen = path + " is " + Octal(access->permissions) + ", of " + access->owner;
  if (platform::IsImmutable(path)) return {"preferences", State::error, seen + ", immutable", "chattr -i " + path};
  if (!access->isOwn) return {"preferences", State::warning, seen, "chown " + platform::UserName() + " " + path};
  const bool isOpen = (access->permissions & writableByOthers) != 0;
  return {"preferences", isOpen ? State::warning : State::ok, seen, isOpen ? "chmod go-w " + path : ""};
}

Finding CheckNeverSend() {
  const auto values = preferences::Read();
  const platform::Value* choice = values ? values->Find(names::alwaysNeverSend) : nullptr;
  if (choice == nullptr || preferences::IntegerOf(*choice) != neverSend) {
    return {"never-send", State::ok, "the user did not choose never to send", ""};
  }
  return {"never-send", State::warning,
          "the user chose never to send: events are posted, but no crash reporter is started",
          "change the choice in the crash reporter, or let the host send without prompt (argument 6)"};
}

Finding CheckDebugLog() {
  const std::string marker = MarkerPath();
  switch (platform::KindOf(marker)) {
    case FileKind::absent:
      return {"debug-log", State::ok, "off", "crctl log on"};
    case FileKind::regular:
      return {"debug-log", State::ok, "on, for daemons started from now on: crctl log show", ""};
    case FileKind::folder:
    case FileKind::other:
      break;
  }
  return {"debug-log", State::warning, marker + " is no regular file: the log is on, its settings are not read",
          "crctl log off"};
}

}  // namespace

State JudgeFreeBytes(std::uint64_t bytes) {
  if (bytes < mebibyte) return State::error;
  return bytes < platform::reportLimitBytes ? State::warning : State::ok;
}

Findings CheckFolders() {
  const std::string library = paths::ExpandTilde(ProcessWide().UserLibrary);
  Findings findings = {CheckLibrary(library)};
  if (library.starts_with('~')) return findings;
  findings.push_back(CheckFolder("reports-folder", GetUserDiagnosticPath()));
  findings.push_back(CheckFolder("queue-folder", ProcessWide().REPORTS_DIR));
  findings.push_back(CheckFolder("preferences-folder", paths::Parent(preferences::FilePath())));
  findings.push_back(CheckFolder("log-folder", paths::Parent(MarkerPath())));
  findings.push_back(CheckSpace(ProcessWide().REPORTS_DIR));
  findings.push_back(CheckPreferences(preferences::FilePath()));
  findings.push_back(CheckNeverSend());
  findings.push_back(CheckDebugLog());
  return findings;
}

}  // namespace crctl
