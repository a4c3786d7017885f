#include <string>
#include <string_view>

#include "CRDaemon/CrashpadDumpName.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "platform/Files.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

// Whether `folder` is the run's own one, below the root of all dumps, and every step from the Library to it is a
// folder: a link of somebody else's on the way could lead anywhere.
bool IsFolderOfRun(const std::string& folder, const std::string& processId) {
  const std::string library = paths::ExpandTilde(ProcessWide().UserLibrary);
  const std::string root = paths::Join(paths::Join(library, names::malvexLogs), names::crashPadDumps);
  if (!folder.starts_with(root + "/") || paths::LastComponent(folder) != processId) return false;
  std::string way = library;
  for (const std::string_view component : text::Split(std::string_view(folder).substr(library.size() + 1), '/')) {
    way = paths::Join(way, component);
    if (!paths::IsPlainComponent(component) || platform::KindOf(way) != platform::FileKind::folder) return false;
  }
  return true;
}

}  // namespace

void MyDaemon::SetCrashPadDumpFile() {
  const std::string root = paths::Join(ProcessWide().UserLibrary, names::malvexLogs);
  const auto directory =
      paths::JoinPlain(root, {names::crashPadDumps, appName.value_or(""), malvexProductVersion.value_or(""),
                              malvexProductBuild.value_or(""), processId.value_or(""), "pending"});
  if (directory) {
    crashPadDumpDirectory.Set(paths::ExpandTilde(*directory));
    GetDumpFileFromDumpDirectory();
  } else {
    LogError("no dump folder: one of its names is no folder name: " + appName.value_or("") + ", " +
             malvexProductVersion.value_or("") + ", " + malvexProductBuild.value_or("") + ", " +
             processId.value_or(""));
  }
}

// The first compressed dump of this run; else the last plain one.
void MyDaemon::GetDumpFileFromDumpDirectory() {
  const std::string directory = crashPadDumpDirectory.Get().value_or("");
  std::string plain;
  auto entries = platform::Folder::Open(directory);
  while (entries) {
    const auto name = entries->Next();
    if (!name) break;
    const auto kind = reports::KindOfDump(*name);
    if (!kind) continue;
    const std::string path = paths::Join(directory, *name);
    if (entries->KindOf(*name) != platform::FileKind::regular) {
      LogError("refused as a dump: " + paths::Shown(path));
      continue;
    }
    if (IsFileCreatedBeforDaemonInit(path)) continue;
    if (*kind == reports::DumpKind::compressed) {
      crashPadDumpFile = path;
      isDumpAttached = "Yes";
      return;
    }
    plain = path;
  }
  crashPadDumpFile = plain;
  isDumpAttached = plain.empty() ? "No" : "Yes";
}

bool MyDaemon::IsFileCreatedBeforDaemonInit(const std::string& path) {
  return reports::IsEarlier(platform::CreationDate(path), ProcessWide().startDate);
}

bool MyDaemon::IsCrashPadEnabled() const { return crashPadDumpFile != ""; }

bool MyDaemon::isDumpDirectoryAvailable() const { return crashPadDumpDirectory.Get() != ""; }

void MyDaemon::removeCrashPadDumpDirectory() {
  const std::string pending = paths::ExpandTilde(crashPadDumpDirectory.Get().value_or(""));
  if (pending.empty()) return;
  const std::string folder = paths::Parent(pending);
  if (platform::KindOf(folder) == platform::FileKind::absent) return;
  const bool isRemoved = IsFolderOfRun(folder, processId.value_or("")) &&
                         platform::RemoveTree(folder) != std::errc::too_many_symbolic_link_levels;
  if (!isRemoved) LogError("refused to remove dump folder " + paths::Shown(folder));
}
