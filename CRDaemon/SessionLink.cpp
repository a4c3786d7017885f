#include <exception>
#include <stdexcept>
#include <string>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Files.h"
#include "platform/Preferences.h"
#include "platform/Tasks.h"
#include "support/FileSystemUtils.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"
#include "utilities/source/Glimmer/Glimmer.h"

namespace {

// The record travels on as one argument of the crash reporter, which Linux limits to 128 KiB with its final NUL.
constexpr std::size_t longestRecordBytes = (std::size_t{128} << 10U) - 1;

// The host's own record, prefix and all. None when it cannot be read.
MyDaemon::Text ReadSessionFile(const std::string& path) {
  auto record = platform::ReadFile(path, platform::smallFileLimitBytes);
  if (platform::IsRefusal(record.Error())) {
    LogError("refused to read session record " + path + ": " + record.Error().message());
  }
  if (!record || !text::IsUtf8(*record)) return std::nullopt;
  if (record->size() > longestRecordBytes) {
    LogError("session record " + path + " of " + std::to_string(record->size()) + " bytes is cut to " +
             std::to_string(longestRecordBytes));
    record->resize(text::UpToBytes(*record, longestRecordBytes).size());
  }
  return std::move(*record);
}

// Where the analytics system registered itself for this application; empty when it did not.
std::string RegisteredPath(const std::string& appName) {
  const auto registration = platform::PreferenceValue(names::analyticsDomain, names::crashProcessorKey);
  const auto* byApplication = registration ? registration->As<platform::Dictionary>() : nullptr;
  const auto* entry = byApplication == nullptr ? nullptr : byApplication->Find(appName);
  std::string path;
  glimmer::CFStringToString(entry == nullptr ? nullptr : entry->As<std::string>(), path);
  return path;
}

}  // namespace

// A later call fills in what an earlier one could not find, and changes nothing else.
void MyDaemon::SetSkylanceSessionId() {
  const std::string prefix = names::sessionPrefix;
  if (skylanceSessionID && skylanceSessionID->size() > prefix.size()) return;
  const std::string sessionFile = glimmerLogPath.Get().value_or("");
  if (sessionFile.empty() && skylanceSessionID.value_or("").empty()) {
    skylanceSessionID = prefix;
  } else if (FileSystemUtils::DoesPathExist(sessionFile)) {
    skylanceSessionID = ReadSessionFile(sessionFile);
  } else {
    Glimmer lookup;
    skylanceSessionID =
        prefix + lookup.getGlimmerDataForApp(appName.value_or(""), processId.value_or(""),
                                             skylanceProductFamily.value_or(""), skylanceProductName.value_or(""));
  }
  LogInfo("Setting Skylance Session ID: " + skylanceSessionID.value_or(""));
}

// A host that was killed can leave an empty session file: no crash is lost for that.
std::string MyDaemon::SessionGuid() const {
  try {
    return text::From(skylanceSessionID.value_or(""), std::string_view(names::sessionPrefix).size());
  } catch (const std::out_of_range&) {
    LogError("session record is shorter than its prefix");
    return "";
  }
}

// Optional through and through: without a crash processor nothing is started, and nothing said about it.
void MyDaemon::MarkSessionAsCrash() {
  LogInfo("Launch GLCrashprocessor that would create Skylance Crash file");
  const std::string name = appName.value_or("");
  const std::string id = processId.value_or("");
  if (ProcessWide().isSignal || name.empty() || id.empty()) return;

  std::string path = RegisteredPath(name);
  if (path.empty()) return;
  path = path.substr(0, path.rfind('/')) + names::crashProcessor;
  if (!FileSystemUtils::DoesPathExist(path)) return;
  static_cast<void>(platform::StartTask(path, {name, id, "", "", "", "", ""}));
}
