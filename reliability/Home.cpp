#include "reliability/Home.h"

#include <sstream>
#include <utility>

namespace reliability {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view prefix = "crMacLog_";
constexpr std::string_view suffix = ".log";

}  // namespace

Home::Home(demo::Sandbox& sandbox, const std::string& name)
    : sandbox_(sandbox), folder_(sandbox.Folder() / "homes" / name) {
  sandbox.Put(folder_ / "Library/Logs/Malvex/CrDebugLogs/generatecrlogornot.txt", "");
  sandbox.Put(folder_ / "Library/Logs/DiagnosticReports/.keep", "");
}

void Home::QueueEvent(const std::string& id) const {
  sandbox_.Put(Queue() / (std::string(prefix) + id + std::string(suffix)),
               "<plist version=\"1.0\"><dict><key>event.guid</key><string>" + id + "</string></dict></plist>");
}

std::vector<std::string> Home::Queued() const {
  std::vector<std::string> ids;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(Queue(), none)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(prefix) || !name.ends_with(suffix)) continue;
    ids.push_back(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
  }
  return ids;
}

demo::HostRun Home::Start(std::map<std::string, std::string> variables, const demo::HostOptions& options) const {
  variables["HOME"] = folder_;
  const auto usual = sandbox_.environment;
  for (const auto& [name, value] : variables) sandbox_.environment[name] = value;
  demo::HostRun run = sandbox_.StartHost(options);
  sandbox_.environment = usual;
  run.logFile = folder_ / "Library/Logs/Malvex/CrDebugLogs" / run.logFile.filename();
  return run;
}

std::string LoggedAfter(const demo::HostRun& run, std::string_view beginning) {
  for (const std::string& message : run.Messages()) {
    if (message.starts_with(beginning)) return message.substr(beginning.size());
  }
  return {};
}

long MemoryKilobytes(pid_t process, const std::string& figure) {
  std::istringstream lines(demo::ContentOf("/proc/" + std::to_string(process) + "/status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(figure + ":")) return std::stol(line.substr(figure.size() + 1));
  }
  return -1;
}

}  // namespace reliability
