#include "demo/Sandbox.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/Json.h"

namespace demo {
namespace {

namespace fs = std::filesystem;
using platform::Dictionary;

constexpr char busConfiguration[] =
    "<busconfig><type>session</type><listen>unix:path=%</listen><auth>EXTERNAL</auth><policy context=\"default\">"
    "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow "
    "own=\"*\"/></policy></busconfig>\n";

void Own(const fs::path& path) {
  const Account account = OrdinaryAccount();
  if (lchown(path.c_str(), account.user, account.group) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

void MakeFolders(const fs::path& path) {
  if (fs::exists(path)) return;
  MakeFolders(path.parent_path());
  fs::create_directory(path);
  fs::permissions(path, fs::perms::owner_all);
  Own(path);
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line) && !stream.eof();) lines.push_back(line);
  return lines;
}

// What a program printed behind `label` once it was ready.
std::string AwaitPrinted(const fs::path& output, const std::string& label) {
  std::string found;
  const bool printed = Eventually([&] {
    for (const std::string& line : Lines(ContentOf(output))) {
      if (line.starts_with(label)) found = line.substr(label.size());
    }
    return !found.empty();
  });
  if (!printed) throw std::runtime_error("no " + label + "from " + output.string() + ": " + ContentOf(output));
  return found;
}

std::string Replaced(std::string text, std::string_view mark, const std::string& value) {
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += value.size()) {
    text.replace(at, mark.size(), value);
  }
  return text;
}

}  // namespace

std::vector<std::string> HostRun::Messages() const {
  constexpr std::string_view before = " | VALUE:";
  std::vector<std::string> messages;
  for (const std::string& line : Lines(ContentOf(logFile))) {
    const std::size_t begin = line.find(before);
    const std::size_t end = line.rfind(" | DETAIL:");
    if (begin == std::string::npos || end == std::string::npos) continue;
    messages.push_back(line.substr(begin + before.size(), end - begin - before.size()));
  }
  return messages;
}

bool HostRun::Logged(std::string_view text) const {
  const auto messages = Messages();
  return std::any_of(messages.begin(), messages.end(), [&](const auto& message) { return message.starts_with(text); });
}

bool HostRun::AwaitMessage(std::string_view text, std::chrono::milliseconds deadline) const {
  return Eventually([&] { return Logged(text); }, deadline);
}

std::string Receipt::Data(const std::string& key) const {
  const platform::Value* member = event.Find("data");
  const auto* data = member == nullptr ? nullptr : member->As<Dictionary>();
  const platform::Value* value = data == nullptr ? nullptr : data->Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? "" : *text;
}

Sandbox::Sandbox(const SandboxOptions& options) {
  std::string pattern = fs::temp_directory_path() / "crdaemon-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  folder_ = pattern;
  Own(folder_);
  // Copies: the account may not be able to enter the folder of the build.
  const fs::path programs = fs::read_symlink("/proc/self/exe").parent_path();
  fs::create_directory(folder_ / "bin");
  for (const char* name : {"CRDaemon", "CRDaemon-http", "SampleHost", "SampleReporter", "crctl"}) {
    fs::copy_file(programs / name, folder_ / "bin" / name);
  }
  fs::copy_file(programs.parent_path() / "lib/libcrhost.so.1", folder_ / "bin/libcrhost.so.1");
  environment = {
      {"HOME", folder_ / "home"}, {"PATH", "/usr/bin:/bin"}, {"TZ", "UTC"}, {"SAMPLE_OUTPUT", folder_ / "started"}};
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) environment[name] = value;
  }
  MakeFolders(Reports());
  MakeFolders(folder_ / "started");
  Put(Library() / "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt", "");
  StartBus();
  StartService(options.isServedWithTls);
}

Sandbox::~Sandbox() {
  service_.reset();
  bus_.reset();
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Sandbox::StartBus() {
  const fs::path configuration = folder_ / "bus.conf";
  Put(configuration, Replaced(busConfiguration, "%", folder_ / "bus"));
  bus_.emplace(StartProgram(
      {"/usr/bin/dbus-daemon", "--nofork", "--print-address", "--config-file=" + configuration.string()}, "bus.out"));
  environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:" + AwaitPrinted(folder_ / "bus.out", "unix:");
}

void Sandbox::StartService(bool withTls) {
  std::vector<std::string> command = {folder_ / "bin/crctl",   "ingest", "--control", "--port", "0", "--events",
                                      folder_ / "events.jsonl"};
  if (withTls) {
    const fs::path certificate = MakeCertificate("service");
    command.insert(command.end(), {"--tls", certificate, folder_ / "service.key"});
    environment["SSL_CERT_FILE"] = certificate;
  }
  service_.emplace(StartProgram(std::move(command), "service.out"));
  environment["CRDAEMON_INGEST_URL"] = AwaitPrinted(folder_ / "service.out", "CRDAEMON_INGEST_URL=");
}

std::string Sandbox::Page() const {
  const std::string& url = environment.at("CRDAEMON_INGEST_URL");
  return url.substr(0, url.rfind('/') + 1);
}

fs::path Sandbox::MakeCertificate(const std::string& name) const {
  fs::path certificate = folder_ / (name + ".crt");
  Program openssl =
      StartProgram({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                    "-nodes", "-days", "2", "-subj", "/CN=" + name, "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                    folder_ / (name + ".key"), "-out", certificate},
                   "openssl.out");
  if (openssl.AwaitEnd() != 0) throw std::runtime_error("openssl: " + ContentOf(folder_ / "openssl.out"));
  return certificate;
}

void Sandbox::Put(const fs::path& path, std::string_view content) const {
  MakeFolders(path.parent_path());
  const fs::path inTheMaking = path.parent_path() / ("." + path.filename().string() + ".new");
  std::ofstream(inTheMaking, std::ios::binary) << content;
  fs::permissions(inTheMaking, fs::perms::owner_read | fs::perms::owner_write);
  Own(inTheMaking);
  fs::rename(inTheMaking, path);
}

Program Sandbox::StartProgram(std::vector<std::string> command, const std::string& outputName) const {
  return {std::move(command), environment, folder_ / outputName};
}

HostRun Sandbox::StartHost(const HostOptions& options) const {
  std::vector<std::string> command = {folder_ / "bin/SampleHost", "--elements", std::to_string(options.count)};
  for (const auto& [number, value] : options.elements) {
    command.emplace_back("--element");
    command.push_back(std::to_string(number) + "=" + value);
  }
  command.push_back(folder_ / "bin/CRDaemon");
  command.push_back(folder_ / "bin/SampleReporter");

  static int hosts = 0;
  return StartHostProgram(std::move(command), "host" + std::to_string(++hosts) + ".out");
}

HostRun Sandbox::StartHostProgram(std::vector<std::string> command, const std::string& outputName) const {
  Program host = StartProgram(std::move(command), outputName);
  const std::string daemon = AwaitPrinted(folder_ / outputName, "daemon ");
  return {.daemon = Program(std::stoi(daemon)),
          .host = std::move(host),
          .logFile = Library() / "Logs/Malvex/CrDebugLogs" / ("CRLog-CRDaemon-" + daemon + ".txt")};
}

HostRun Sandbox::StartWatchedHost(const HostOptions& options) const {
  HostRun run = StartHost(options);
  if (!run.AwaitMessage("runOnce")) throw std::runtime_error("the daemon does not watch: " + ContentOf(run.logFile));
  return run;
}

void Sandbox::TellService(const std::string& line) const {
  const auto echoes = [&] {
    const auto printed = Lines(ContentOf(folder_ / "service.out"));
    return std::count(printed.begin(), printed.end(), line);
  };
  const auto before = echoes();
  service_->Say(line);
  if (!Eventually([&] { return echoes() > before; })) throw std::runtime_error("the service does not listen");
}

std::vector<Receipt> Sandbox::Received() const {
  std::vector<Receipt> receipts;
  for (const std::string& line : Lines(ContentOf(folder_ / "events.jsonl"))) {
    const auto record = std::get<Dictionary>(json::Parse(line, {"status", "problems", "event"}));
    receipts.push_back({.status = *record.Find("status")->As<std::int64_t>(),
                        .problems = *record.Find("problems")->As<platform::Array>(),
                        .event = *record.Find("event")->As<Dictionary>()});
  }
  return receipts;
}

std::vector<fs::path> Sandbox::QueuedEvents() const {
  std::vector<fs::path> events;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(Queue(), none)) {
    if (entry.path().extension() == ".log") events.push_back(entry.path());
  }
  return events;
}

std::optional<std::vector<std::string>> Sandbox::StartedWith(const std::string& program) const {
  const fs::path file = folder_ / "started" / (program + ".txt");
  if (!fs::exists(file)) return std::nullopt;
  std::vector<std::string> arguments;
  for (const std::string& line : Lines(ContentOf(file))) arguments.push_back(line.substr(line.find(' ') + 1));
  return arguments;
}

void Sandbox::ForgetStartedPrograms() const {
  for (const auto& entry : fs::directory_iterator(folder_ / "started")) fs::remove(entry);
}

fs::path Sandbox::CopyOf(const std::string& program, const fs::path& as) const {
  fs::path copy = folder_ / as;
  fs::create_directories(copy.parent_path());
  fs::copy_file(folder_ / "bin" / program, copy);
  return copy;
}

void Sandbox::InstallCrashProcessor() const {
  static_cast<void>(CopyOf("SampleReporter", "glimmer/GLCrashProcessor.app/Contents/MacOS/GLCrashProcessor"));
  Put(Library() / "Preferences/com.malvex.glimmerxt.plist",
      "<plist version=\"1.0\"><dict><key>CRProcessor</key><dict><key>Photo</key><string>" +
          (folder_ / "glimmer/GlimmerXT.app").string() + "</string></dict></dict></plist>");
}

fs::path Sandbox::PendingDumps(const HostRun& run) const {
  return Library() / "Logs/Malvex/CrashPadDumps/Photo/4.2.0/b7" / std::to_string(run.host.Id()) / "pending";
}

std::string SystemReport(pid_t process) {
  return Replaced(R"json({"app_name":"Photo","app_version":"4.2","bug_type":"309","os_version":"macOS 12.6.1 (21G217)"}
{
  "uptime" : 42000,
  "procLaunch" : "2026-03-04 05:06:07.1234 +0000",
  "modelCode" : "MacBookPro18,3",
  "captureTime" : "2026-03-04 05:06:19.5678 +0000",
  "pid" : %,
  "procName" : "Photo",
  "exception" : {"codes":"0x0000000000000001", "type":"EXC_BAD_ACCESS", "signal":"SIGSEGV", "subtype":"KERN_INVALID_ADDRESS"},
  "faultingThread" : 0,
  "threads" : [{"triggered":true,"id":77231,"queue":"com.apple.main-thread","frames":[{"imageOffset":12,"imageIndex":1},{"imageOffset":512,"imageIndex":0}]},{"id":77240,"frames":[]}],
  "usedImages" : [
  {
    "base" : 4368400384,
    "CFBundleIdentifier" : "com.malvex.photo",
    "name" : "Photo"
  },
  {
    "base" : 6600556544,
    "CFBundleIdentifier" : "com.malvex.photo.filters",
    "name" : "Filters"
  }
],
  "sharedCache" : {
  "base" : 6597214208
}
}
)json",
                  "%", std::to_string(process));
}

Protection::Protection(const fs::path& path) : path_(path), holds_(Set(true)) {}

Protection::~Protection() {
  if (holds_) static_cast<void>(Set(false));
}

bool Protection::Set(bool protect) const {
  const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  int flags = 0;
  bool done = ioctl(file, FS_IOC_GETFLAGS, &flags) == 0;
  flags = protect ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  done = done && ioctl(file, FS_IOC_SETFLAGS, &flags) == 0;
  close(file);
  return done;
}

}  // namespace demo
