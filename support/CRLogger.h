#pragma once

#include <cstdint>
#include <string>

#include "support/SLGarbageCollection.h"

namespace CRLogger {

// The debug log: one line a call, flushed at once, in a file of this process's own. Logging is on while the marker file
// "generatecrlogornot.txt" stands in the log folder of the user's Library; otherwise callers get a logger that does
// nothing. Any thread may log once the first GetLogger has returned; a line is never torn.
class Logger : public GlobalItem {
 public:
  class LoggerFile;

  // Does not own `stream`, which outlives it; without one it writes nothing.
  explicit Logger(LoggerFile* stream) : stream_(stream) {}

  virtual void LogFatal(const std::string& message, const std::string& codeInfo);
  virtual void LogError(const std::string& message, const std::string& codeInfo);
  virtual void LogWarning(const std::string& message, const std::string& codeInfo);
  virtual void LogDebug(const std::string& message, const std::string& codeInfo);
  virtual void LogInfo(const std::string& message, const std::string& codeInfo);
  virtual void LogFatal(const std::string& message, const std::string& file, std::int64_t line);
  virtual void LogError(const std::string& message, const std::string& file, std::int64_t line);
  virtual void LogWarning(const std::string& message, const std::string& file, std::int64_t line);
  virtual void LogDebug(const std::string& message, const std::string& file, std::int64_t line);
  virtual void LogInfo(const std::string& message, const std::string& file, std::int64_t line);
  virtual void Log(const std::string& level, const std::string& value, const std::string& detail);

  // The process's logger, owned by the registry. The first call decides for good whether there is a log, and its
  // component names the file; that call must return before a second thread makes one. `flag` is ignored.
  static Logger* GetLogger(const std::string& component, bool flag = false);

  // "File:" file " LINE:" line
  static std::string GetCodeInfo(const std::string& file, std::int32_t line);

  // As a stream writes it; exists for std::int32_t alone.
  template <typename T>
  static std::string GetString(const T& value) {
    return std::to_string(value);
  }

  static std::string* pStrConfigFilePath;
  static Logger* pLogger;
  static LoggerFile* pLogFile;

 private:
  LoggerFile* stream_;
};

// Swallows every message.
class NULLLogger : public Logger {
 public:
  NULLLogger() : Logger(nullptr) {}
  void LogFatal(const std::string&, const std::string&) override {}
  void LogError(const std::string&, const std::string&) override {}
  void LogWarning(const std::string&, const std::string&) override {}
  void LogDebug(const std::string&, const std::string&) override {}
  void LogInfo(const std::string&, const std::string&) override {}
  void LogFatal(const std::string&, const std::string&, std::int64_t) override {}
  void LogError(const std::string&, const std::string&, std::int64_t) override {}
  void LogWarning(const std::string&, const std::string&, std::int64_t) override {}
  void LogDebug(const std::string&, const std::string&, std::int64_t) override {}
  void LogInfo(const std::string&, const std::string&, std::int64_t) override {}
};

}  // namespace CRLogger
