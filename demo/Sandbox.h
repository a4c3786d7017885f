#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "demo/Program.h"
#include "platform/PropertyList.h"

namespace demo {

// A host and the daemon that watches it.
struct HostRun {
  // Declared in this order: the daemon can be waited for only once the host is gone.
  Program daemon;
  Program host;
  std::filesystem::path logFile;

  // The messages of the daemon's debug log so far.
  [[nodiscard]] std::vector<std::string> Messages() const;
  // Whether a message begins with `text` by the deadline.
  [[nodiscard]] bool AwaitMessage(std::string_view text, std::chrono::milliseconds deadline = patience) const;
  [[nodiscard]] bool Logged(std::string_view text) const;
};

// One request as the service took it down.
struct Receipt {
  std::int64_t status = 0;     // of the answer
  platform::Array problems;    // what broke the protocol
  platform::Dictionary event;  // the envelope's only one, its "data" included

  // A text of the "data"; empty when there is none.
  [[nodiscard]] std::string Data(const std::string& key) const;
};

struct HostOptions {
  std::map<int, std::string> elements;  // of the daemon's arguments, in place of the sample host's
  int count = 31;
};

struct SandboxOptions {
  bool isServedWithTls = true;
};

// A world for real hosts and real daemons: a folder with a home of its own, a private session bus and an ingest
// service, as a rule with a certificate of its own. All of it, the programs included, goes with this object. The debug
// log is on.
class Sandbox {
 public:
  explicit Sandbox(const SandboxOptions& options = {});
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;
  ~Sandbox();

  // What programs started from now on find; holds what CRDaemon reads.
  std::map<std::string, std::string> environment;

  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }
  [[nodiscard]] std::filesystem::path Library() const { return folder_ / "home/Library"; }
  [[nodiscard]] std::filesystem::path Reports() const { return Library() / "Logs/DiagnosticReports"; }
  [[nodiscard]] std::filesystem::path Queue() const { return Library() / "Logs/CrashReporter/Ingest"; }
  [[nodiscard]] std::filesystem::path Preferences() const {
    return Library() / "Preferences/com.malvex.crashreporter.plist";
  }

  // Writes a file for the ordinary account, all at once, and makes the folders on its way.
  void Put(const std::filesystem::path& path, std::string_view content) const;

  // A self-signed certificate for the loopback address and its key, as <name>.crt and <name>.key in the folder.
  [[nodiscard]] std::filesystem::path MakeCertificate(const std::string& name) const;

  [[nodiscard]] Program StartProgram(std::vector<std::string> command, const std::string& outputName) const;

  [[nodiscard]] HostRun StartHost(const HostOptions& options) const;
  // Any program that starts a daemon and prints "daemon" and its process id.
  [[nodiscard]] HostRun StartHostProgram(std::vector<std::string> command, const std::string& outputName) const;
  // Returns once the daemon watches it: what happens from now on is this run's.
  [[nodiscard]] HostRun StartWatchedHost(const HostOptions& options = {}) const;

  // A line for the ingest service, in force on return.
  void TellService(const std::string& line) const;
  [[nodiscard]] std::vector<Receipt> Received() const;
  // The URL under which the service shows what it received; ends with a slash.
  [[nodiscard]] std::string Page() const;

  [[nodiscard]] std::vector<std::filesystem::path> QueuedEvents() const;
  // None while no crash reporter was started.
  [[nodiscard]] std::optional<std::vector<std::string>> ReporterArguments() const {
    return StartedWith("SampleReporter");
  }
  // The same of any program that is a copy of it.
  [[nodiscard]] std::optional<std::vector<std::string>> StartedWith(const std::string& program) const;
  void ForgetStartedPrograms() const;

  // Registers a crash processor for the sample host, as the analytics system does.
  void InstallCrashProcessor() const;
  // A copy of a sample program, under the name that others will know its process by.
  [[nodiscard]] std::filesystem::path CopyOf(const std::string& program, const std::filesystem::path& as) const;

  // Where the host's Crashpad handler leaves its dumps.
  [[nodiscard]] std::filesystem::path PendingDumps(const HostRun& run) const;

 private:
  void StartBus();
  void StartService(bool withTls);

  std::filesystem::path folder_;
  std::optional<Program> bus_;
  std::optional<Program> service_;
};

// A report as the system writes it, about the process of that id.
[[nodiscard]] std::string SystemReport(pid_t process);

// The system's protection of a report that it is not done with: the immutable flag, which only root can set.
class Protection {
 public:
  explicit Protection(const std::filesystem::path& path);
  Protection(const Protection&) = delete;
  Protection& operator=(const Protection&) = delete;
  ~Protection();

  // False where it could not be set.
  [[nodiscard]] bool Holds() const { return holds_; }

 private:
  [[nodiscard]] bool Set(bool protect) const;

  std::filesystem::path path_;
  bool holds_;
};

}  // namespace demo
