#include "support/CRLogger.h"

#include <mutex>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Processes.h"
#include "support/CRUtils.h"
#include "support/Dates.h"
#include "support/FileSystemUtils.h"
#include "support/FixedNames.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace CRLogger {

namespace {

using SLGarbageCollection::GarbageCollection;

constexpr std::size_t longestSettingsLine = 511;

// Keeps lines of several threads apart.
std::mutex lineMutex;

template <typename Item>
Item* KeepForever(Item* item) {
  GarbageCollection::PushGlobalValue<GlobalItem>(item, GarbageCollection::Get().items);
  return item;
}

std::string LogFolder() {
  std::string folder;
  CRUtils::GetUserLibraryDir(folder);
  return folder + names::debugLogs;
}

// What is in the way makes room, but not a link to a folder: it is one as long as the marker file is reached through
// it.
bool EnsureFolder(const std::string& folder) {
  using platform::FileKind;
  if (folder.empty()) return false;
  const FileKind kind = platform::KindOf(folder);
  const bool isLinkToFolder = kind == FileKind::other && FileSystemUtils::DoesPathExist(*Logger::pStrConfigFilePath);
  if (kind == FileKind::folder || isLinkToFolder) return true;
  if (kind != FileKind::absent && platform::RemoveFile(folder)) return false;
  return !platform::MakeFolders(folder);
}

std::vector<std::string_view> Tokens(std::string_view line) {
  constexpr std::string_view separators = " =;,";
  std::vector<std::string_view> tokens;
  for (std::size_t end = 0;;) {
    const std::size_t start = line.find_first_not_of(separators, end);
    if (start == std::string_view::npos) return tokens;
    end = std::min(line.find_first_of(separators, start), line.size());
    tokens.push_back(line.substr(start, end - start));
  }
}

// The last line about it counts.
bool IsAppendOn(std::string_view settings) {
  bool isOn = false;
  while (true) {
    const std::string_view line = settings.substr(0, settings.find('\n'));
    if (line.size() > longestSettingsLine) return isOn;
    const auto tokens = Tokens(line);
    if (tokens.size() >= 2 && tokens[0] == "append") isOn = tokens[1] == "1";
    if (line.size() == settings.size()) return isOn;
    settings.remove_prefix(line.size() + 1);
  }
}

}  // namespace

// The file of this process's log. Unbuffered: what is written is in the file, whatever becomes of this process. No
// standard stream: their locales alone would be a fifth of what the waiting daemon holds.
class Logger::LoggerFile : public GlobalItem {
 public:
  LoggerFile(const std::string& path, bool append) : file_(platform::OutputFile::Open(path, append)) {}

  // Silent for good after the first failure, that of opening it included.
  void Write(std::string_view line) { isGood_ = isGood_ && file_ && file_->Write(line); }

 private:
  platform::Result<platform::OutputFile> file_;
  bool isGood_ = true;
};

std::string* Logger::pStrConfigFilePath = nullptr;
Logger* Logger::pLogger = nullptr;
Logger::LoggerFile* Logger::pLogFile = nullptr;

void Logger::LogFatal(const std::string& message, const std::string& codeInfo) { Log("FATAL", message, codeInfo); }
void Logger::LogError(const std::string& message, const std::string& codeInfo) { Log("ERROR", message, codeInfo); }
void Logger::LogWarning(const std::string& message, const std::string& codeInfo) { Log("WARNING", message, codeInfo); }
void Logger::LogDebug(const std::string& message, const std::string& codeInfo) { Log("DEBUG", message, codeInfo); }
void Logger::LogInfo(const std::string& message, const std::string& codeInfo) { Log("INFO", message, codeInfo); }

void Logger::LogFatal(const std::string& message, const std::string& file, std::int64_t line) {
  Log("FATAL", message, GetCodeInfo(file, static_cast<std::int32_t>(line)));
}
void Logger::LogError(const std::string& message, const std::string& file, std::int64_t line) {
  Log("ERROR", message, GetCodeInfo(file, static_cast<std::int32_t>(line)));
}
void Logger::LogWarning(const std::string& message, const std::string& file, std::int64_t line) {
  Log("WARNING", message, GetCodeInfo(file, static_cast<std::int32_t>(line)));
}
void Logger::LogDebug(const std::string& message, const std::string& file, std::int64_t line) {
  Log("DEBUG", message, GetCodeInfo(file, static_cast<std::int32_t>(line)));
}
void Logger::LogInfo(const std::string& message, const std::string& file, std::int64_t line) {
  Log("INFO", message, GetCodeInfo(file, static_cast<std::int32_t>(line)));
}

void Logger::Log(const std::string& level, const std::string& value, const std::string& detail) {
  if (stream_ == nullptr) return;
  const std::string line = "[" + level + "] | PID:" + GetString(platform::CurrentProcessId()) +
                           " | TIME:" + dates::FormatLogTime(platform::Now()) + " | VALUE:" + value +
                           " | DETAIL:" + detail + "\n";
  const std::lock_guard lock(lineMutex);
  stream_->Write(line);
}

Logger* Logger::GetLogger(const std::string& component, bool) {
  if (pLogger != nullptr) return pLogger;
  const std::string folder = LogFolder();
  if (pStrConfigFilePath == nullptr) {
    pStrConfigFilePath = new std::string(folder + names::markerFile);
    GarbageCollection::PushGlobalValue(pStrConfigFilePath, GarbageCollection::Get().strings);
  }
  const std::string path = folder + "CRLog-" + component + "-" + GetString(platform::CurrentProcessId()) + ".txt";
  if (!FileSystemUtils::DoesPathExist(*pStrConfigFilePath) || !EnsureFolder(paths::Parent(path))) {
    pLogger = KeepForever(new NULLLogger());
    return pLogger;
  }
  if (pLogFile == nullptr) {
    const auto settings = platform::ReadFile(*pStrConfigFilePath, platform::smallFileLimitBytes);
    pLogFile = KeepForever(new LoggerFile(path, settings && IsAppendOn(*settings)));
  }
  pLogger = KeepForever(new Logger(pLogFile));
  return pLogger;
}

std::string Logger::GetCodeInfo(const std::string& file, std::int32_t line) {
  return "File:" + file + " LINE:" + GetString(line);
}

}  // namespace CRLogger
