#include "support/CRLogger.h"

#include <ios>
#include <iostream>
#include <mutex>
#include <sstream>
#include <streambuf>
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
  for (const std::string_view line : text::Split(settings, '\n')) {
    if (line.size() > longestSettingsLine) break;
    const auto tokens = Tokens(line);
    if (tokens.size() >= 2 && tokens[0] == "append") isOn = tokens[1] == "1";
  }
  return isOn;
}

// Unbuffered: what is written is in the file, whatever becomes of this process.
class FileBuffer : public std::streambuf {
 public:
  FileBuffer(const std::string& path, bool append) : file_(platform::OutputFile::Open(path, append)) {}

  [[nodiscard]] bool IsOpen() const { return static_cast<bool>(file_); }

 protected:
  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    return IsOpen() && file_->Write({characters, static_cast<std::size_t>(count)}) ? count : 0;
  }
  int_type overflow(int_type character) override {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char single = traits_type::to_char_type(character);
    return xsputn(&single, 1) == 1 ? character : traits_type::eof();
  }

 private:
  platform::Result<platform::OutputFile> file_;
};

}  // namespace

// The file of this process's log. One that could not be opened is a stream that has failed.
class Logger::LoggerFile : public GlobalItem {
 public:
  LoggerFile(const std::string& path, bool append) : buffer_(path, append), stream_(&buffer_) {
    if (!buffer_.IsOpen()) stream_.setstate(std::ios_base::failbit);
  }

  [[nodiscard]] std::ostream* Stream() { return &stream_; }

 private:
  FileBuffer buffer_;
  std::ostream stream_;
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
  const std::lock_guard lock(lineMutex);
  if (stream_->fail()) return;
  *stream_ << "[" + level + "] | PID:" + GetString(platform::CurrentProcessId()) +
                  " | TIME:" + dates::FormatLogTime(platform::Now()) + " | VALUE:" + value + " | DETAIL:" + detail +
                  '\n';
  stream_->flush();
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
  pLogger = KeepForever(new Logger(pLogFile->Stream()));
  return pLogger;
}

std::string Logger::GetCodeInfo(const std::string& file, std::int32_t line) {
  return "File:" + file + " LINE:" + GetString(line);
}

template <typename T>
std::string Logger::GetString(const T& value) {
  std::ostringstream stream;
  stream << value;
  return stream.str();
}

template std::string Logger::GetString(const std::int32_t& value);

NULLLogger::NULLLogger() : Logger(&std::cout) {}

}  // namespace CRLogger
