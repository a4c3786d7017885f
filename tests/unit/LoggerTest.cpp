#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "platform/Processes.h"
#include "support/CRLogger.h"
#include "support/Log.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using CRLogger::Logger;

// On the real machine: what counts is what stands in the file.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() {
    setenv("HOME", home_.c_str(), 1);
    Forget();
  }
  ~LoggerTest() override { fs::remove_all(home_); }

  static void Forget() {
    Logger::pStrConfigFilePath = nullptr;
    Logger::pLogger = nullptr;
    Logger::pLogFile = nullptr;
  }
  void Mark(const std::string& settings) {
    fs::create_directories(folder_);
    std::ofstream(folder_ / "generatecrlogornot.txt") << settings;
  }
  std::string Log() const {
    std::ifstream stream(file_);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  std::string pattern_ = "/tmp/crd-logger-test-XXXXXX";
  const fs::path home_ = mkdtemp(pattern_.data());
  const fs::path folder_ = home_ / "Library/Logs/Malvex/CrDebugLogs";
  const fs::path file_ = folder_ / ("CRLog-CRDaemon-" + Logger::GetString(platform::CurrentProcessId()) + ".txt");
};

TEST_F(LoggerTest, WithoutAMarkerStaysSilentForGood) {
  Logger* logger = Logger::GetLogger("CRDaemon");
  logger->LogFatal("x", "y");
  EXPECT_FALSE(fs::exists(home_ / "Library/Logs"));
  Mark("");
  EXPECT_EQ(Logger::GetLogger("CRDaemon"), logger);
  EXPECT_FALSE(fs::exists(file_));
}

TEST_F(LoggerTest, IsSilentForGoodAfterALineThatFailed) {
  Mark("");
  const auto log = [](const char* text) { Logger::GetLogger("CRDaemon")->LogError(text, "x"); };
  log("first");
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit none{0, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &none);
  log("fails");
  setrlimit(RLIMIT_FSIZE, &before);
  log("too late");
  EXPECT_NE(Log().find("first"), std::string::npos);
  EXPECT_EQ(Log().find("too late"), std::string::npos);
}

TEST_F(LoggerTest, WritesALineACallIntoThePrivateFileOfTheFirstComponent) {
  Mark("");
  Logger::GetLogger("CRDaemon")->LogFatal("a", "A");
  Logger::GetLogger("Other")->LogError("b", "f", -1);
  Logger::GetLogger("Other")->LogWarning("c", "f", (std::int64_t{1} << 32U) + 12);
  Logger::GetLogger("Other")->LogDebug("", "");
  Logger::GetLogger("Other")->LogWarning("e", "E");
  LogInfo("d\xFF", CodePlace{"some/where/Place.cpp", 7});
  const std::regex head("PID:" + Logger::GetString(platform::CurrentProcessId()) +
                        R"( \| TIME:\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
  EXPECT_EQ(std::regex_replace(Log(), head, "#"),
            "[FATAL] | # | VALUE:a | DETAIL:A\n"
            "[ERROR] | # | VALUE:b | DETAIL:File:f LINE:-1\n[WARNING] | # | VALUE:c | DETAIL:File:f LINE:12\n"
            "[DEBUG] | # | VALUE: | DETAIL:\n[WARNING] | # | VALUE:e | DETAIL:E\n[INFO] | # | VALUE:d\xFF | "
            "DETAIL:File:Place.cpp LINE:7\n");
  EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(LoggerTest, AppendsOnlyWhenTheMarkerSaysSo) {
  const std::string longest(511, 'x');
  const auto isExtended = [this](const std::string& settings) {
    Mark(settings);
    std::ofstream(file_) << "earlier\n";
    Forget();
    LogInfo("new");
    EXPECT_NE(Log().find("[INFO]"), std::string::npos);
    return Log().starts_with("earlier\n");
  };
  for (const auto& settings : {"append=1"s, "append = 1 , x\n"s, ";;append;1"s, "append 0\nappend 1"s,
                               longest + "\nappend=1", "append=1\nx" + longest + "\nappend=0"}) {
    EXPECT_TRUE(isExtended(settings)) << settings;
  }
  for (const auto& settings : {""s, "append"s, "append=1\nappend=0"s, "append=true"s, "append=01"s, "append=1\r"s,
                               "append\n1"s, "x" + longest + "\nappend=1"}) {
    EXPECT_FALSE(isExtended(settings)) << settings;
  }
}

TEST_F(LoggerTest, NeverWritesThroughALinkedFileButFollowsALinkedFolder) {
  fs::create_directories(home_ / "elsewhere");
  fs::create_directories(folder_.parent_path());
  fs::create_directory_symlink(home_ / "elsewhere", folder_);
  Mark("append=1");
  LogInfo("x");
  EXPECT_TRUE(fs::is_symlink(folder_) && fs::remove(file_));
  std::ofstream(home_ / "target") << "kept";
  fs::create_symlink(home_ / "target", file_);
  Forget();
  LogInfo("x");
  EXPECT_EQ(Log(), "kept");
}

}  // namespace
