// The marker file of the debug log, with the settings in it: whatever it holds, the log is on, and new or appended to.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/Target.h"
#include "platform/Processes.h"
#include "support/CRLogger.h"
#include "support/SLGarbageCollection.h"

namespace {

namespace fs = std::filesystem;
using CRLogger::Logger;

// The home folder of this process, which goes with it.
struct Home {
  Home() {
    fs::create_directories(logs);
    setenv("HOME", folder.c_str(), 1);
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  ~Home() { fs::remove_all(folder); }

  std::string pattern = fs::temp_directory_path() / "crd-fuzz-XXXXXX";
  fs::path folder = mkdtemp(pattern.data());
  fs::path logs = folder / "Library/Logs/Malvex/CrDebugLogs";
};

// The registry keeps for the life of a process what is needed here for one input.
void ForgetLogger() {
  auto& items = SLGarbageCollection::GarbageCollection::Get().items;
  for (const GlobalItem* item : items) delete item;
  items.clear();
  Logger::pLogger = nullptr;
  Logger::pLogFile = nullptr;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Home home;
  const fs::path file = home.logs / ("CRLog-CRDaemon-" + std::to_string(platform::CurrentProcessId()) + ".txt");
  std::ofstream(home.logs / "generatecrlogornot.txt") << fuzz::TextOf(data, size);
  std::ofstream(file) << "earlier\n";
  Logger::GetLogger("CRDaemon")->LogInfo("new", "");
  ForgetLogger();
  std::ifstream stream(file);
  const std::string log{std::istreambuf_iterator<char>(stream), {}};
  fuzz::Require(log.ends_with("| VALUE:new | DETAIL:\n"), "the line is in the log");
  fuzz::Require(log.starts_with("[INFO]") || log.starts_with("earlier\n[INFO]"), "the log is new or appended to");
  return 0;
}
