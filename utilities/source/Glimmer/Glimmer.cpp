#include "utilities/source/Glimmer/Glimmer.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/Files.h"
#include "platform/Users.h"
#include "support/FileSystemUtils.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace {

constexpr std::size_t logFilesRead = 2;
constexpr std::size_t indexOfPlainNames = 3;

// What a session-info name must hold, and which of its components is the session id.
struct NamePattern {
  std::string filter;  // empty: none
  std::string processKey;
  std::size_t index = indexOfPlainNames;
};

std::size_t CountUnderscores(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '_'));
}

NamePattern PatternOf(const std::string& appName, const std::string& procID, const std::string& family,
                      const std::string& name) {
  NamePattern pattern;
  if (!family.empty() && !name.empty()) {
    pattern.filter = "_" + family + "_" + name + "_";
    LogInfo("GetGlimmerSessionID: hname:" + pattern.filter);
    const std::size_t ofFamily = CountUnderscores(family);
    LogInfo("GetGlimmerSessionID: underscoreCountinProdFamily:" + std::to_string(ofFamily));
    const std::size_t ofName = CountUnderscores(name);
    LogInfo("GetGlimmerSessionID: underscoreCountinProdName:" + std::to_string(ofName));
    pattern.index = 2 * ofFamily + ofName + indexOfPlainNames;
  }
  pattern.processKey = "_" + procID + "_" + appName;
  LogInfo("GetGlimmerSessionID: hname:" + pattern.processKey);
  return pattern;
}

void EnsureFolder(const std::string& folder) {
  if (!FileSystemUtils::DoesPathExist(folder)) platform::MakeFolders(folder);
}

// The component at the index; none for a name that does not match or has too few components.
std::optional<std::string> SessionIn(const std::string& name, const NamePattern& pattern) {
  if (!pattern.filter.empty() && !text::Contains(name, pattern.filter)) return std::nullopt;
  if (!text::Contains(name, pattern.processKey)) return std::nullopt;
  const auto components = text::Split(name, '_');
  if (components.size() <= pattern.index) return std::nullopt;
  LogInfo("GetGlimmerSessionID: hname:" + std::string(components[pattern.index]));
  return std::string(components[pattern.index]);
}

}  // namespace

Glimmer::Glimmer()
    : UserLibrary(IsRootUser() ? "~" + GetLoggedInUserName() + "/Library" : std::string("~/Library")),
      sessionFilePath(UserLibrary + "/Logs/Malvex/GlimmerXT/SessionInfo/"),
      glSessionFilePath(UserLibrary + "/Logs/Malvex/Glimmer/SessionInfo/"),
      logFilePath(UserLibrary + "/Logs/Malvex/LogFerry2XT/") {}

bool Glimmer::IsRootUser() { return platform::IsRootUser(); }

std::string Glimmer::GetLoggedInUserName() { return platform::ConsoleUser().value_or("<none>"); }

std::optional<std::string> Glimmer::getGlimmerSessionIDFromSIFFile(const std::string& appName,
                                                                   const std::string& procID,
                                                                   const std::string& productFamily,
                                                                   const std::string& productName,
                                                                   const std::string& sifPath) {
  EnsureFolder(sifPath);
  const NamePattern pattern = PatternOf(appName, procID, productFamily, productName);
  auto entries = platform::Folder::Open(sifPath);
  if (!entries) {
    LogError("session folder cannot be read: " + sifPath + ": " + entries.Error().message());
    return std::nullopt;
  }
  while (const auto name = entries->Next()) {
    if (auto session = SessionIn(*name, pattern)) return session;
  }
  return std::nullopt;
}

std::string Glimmer::getGlimmerSessionIDForApp(const std::string& appName, const std::string& procID,
                                               const std::string& productFamily, const std::string& productName) {
  LogInfo("GetGlimmerSessionID: appName:pid:hFamily:hApp" + appName + ":" + procID + ":" + productFamily + ":" +
          productName);
  LogInfo("GetGlimmerSessionID: sessionFilePath:" + sessionFilePath);
  LogInfo("GetGlimmerSessionID: glSessionFilePath:" + glSessionFilePath);
  struct Generation {
    const std::string& folder;
    const char* name;
  };
  for (const Generation& generation : {Generation{sessionFilePath, "GlimmerXT"}, {glSessionFilePath, "Glimmer"}}) {
    const auto session =
        getGlimmerSessionIDFromSIFFile(text::Trim(appName), text::Trim(procID), text::Trim(productFamily),
                                       text::Trim(productName), paths::ExpandTilde(generation.folder));
    if (session) return *session;
    LogInfo(std::string("Skylance Session Info file could not be found in ") + generation.name + " directory");
  }
  return "";
}

std::string Glimmer::getGlimmerDataForApp(const std::string& appName, const std::string& procID,
                                          const std::string& productFamily, const std::string& productName) {
  std::string session = getGlimmerSessionIDForApp(appName, procID, productFamily, productName);
  if (!session.empty()) LogInfo("Skylance session ID: " + session);
  return session;
}

std::vector<std::string> Glimmer::getLogFilesForSessionID(const std::string& sessionID) {
  const std::string folder = paths::ExpandTilde(logFilePath);
  EnsureFolder(folder);
  std::vector<std::string> found;
  auto entries = platform::Folder::Open(folder);
  while (entries) {
    auto name = entries->Next();
    if (!name) break;
    if (text::Contains(*name, sessionID)) found.push_back(std::move(*name));
  }
  return found;
}

std::string Glimmer::getDatafromLogFiles(std::vector<std::string>& names) {
  std::sort(names.begin(), names.end());
  const std::size_t kept = names.size() - std::min(names.size(), logFilesRead);
  std::string data;
  for (std::size_t i = kept; i < names.size(); ++i) {
    const auto bytes =
        platform::ReadFile(paths::Join(paths::ExpandTilde(logFilePath), names[i]), platform::reportLimitBytes);
    if (bytes && text::IsUtf8(*bytes)) data += *bytes;
  }
  names.resize(kept);
  return data;
}

void glimmer::CFStringToString(const std::string* text, std::string& out) {
  if (text != nullptr && text::IsUtf8(*text)) out = *text;
}
