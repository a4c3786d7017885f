// reliability_root [--short]: the real daemon as root, in the Library of a user who plants links on its way. It reads,
// overwrites and removes nothing outside, and what it makes is that user's. Without root's privileges nothing of this
// can be tried: then it says so, prints no figure and ends with 0.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <system_error>
#include <thread>

#include "demo/SampleElements.h"
#include "platform/Files.h"
#include "reliability/Figures.h"
#include "reliability/RootWorld.h"
#include "support/AtomicFile.h"

namespace {

namespace fs = std::filesystem;
using demo::HostRun;
using demo::Sandbox;
using reliability::Figures;
using reliability::RootWorld;
using reliability::Witness;

constexpr char unharmed[] = "root leaves unread and unchanged what a planted link points to";
constexpr char spared[] = "root leaves unread and unchanged what has a second name in the Library";
constexpr char raced[] = "root is not led outside while folder and link change places";
constexpr char delivered[] = "crash in another user's Library is delivered by root";
constexpr char handedOver[] = "what root makes in another user's Library is that user's alone";
constexpr char unprivileged[] = "HTTP helper of root's daemon runs as the console user";

constexpr char secret[] = "SkylanceSessionId:  ROOTS-SECRET";
constexpr char reports[] = "Library/Logs/DiagnosticReports";
constexpr char bait[] = "Photo-bait.ips";

// What may be a link, or a second name of a file, in the console user's home; % stands for the host's id.
const std::vector<std::string> foldersOnTheWay = {"Library",
                                                  "Library/Logs",
                                                  reports,
                                                  "Library/Logs/DiagnosticReportsForNewHardware",
                                                  "Library/Logs/Malvex",
                                                  "Library/Logs/Malvex/GlimmerXT",
                                                  "Library/Logs/Malvex/GlimmerXT/SessionInfo",
                                                  "Library/Logs/Malvex/Glimmer",
                                                  "Library/Logs/Malvex/Glimmer/SessionInfo",
                                                  "Library/Logs/Malvex/CrashPadDumps",
                                                  "Library/Logs/Malvex/CrashPadDumps/Photo",
                                                  "Library/Logs/Malvex/CrashPadDumps/Photo/4.2.0",
                                                  "Library/Logs/Malvex/CrashPadDumps/Photo/4.2.0/b7",
                                                  "Library/Logs/Malvex/CrashPadDumps/Photo/4.2.0/b7/%",
                                                  "Library/Logs/Malvex/CrashPadDumps/Photo/4.2.0/b7/%/pending",
                                                  "Library/Preferences",
                                                  "Library/Preferences/Photo",
                                                  "Library/Preferences/Photo/4.2"};
const std::vector<std::string> filesOnTheWay = {
    "Library/Logs/Malvex/glimmerData_%.sllog", "Library/Logs/Malvex/data_%.txt",
    "Library/Preferences/com.malvex.crashreporter.plist", "Library/Preferences/Photo/4.2/CrashModule.txt"};

std::string ForHost(std::string text, pid_t host) {
  const auto at = text.find('%');
  return at == std::string::npos ? text : text.replace(at, 1, std::to_string(host));
}

void Write(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << content;
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
}

// All that the daemon would read, replace or remove if a link led it here.
void FillOutside(const fs::path& outside, pid_t host) {
  for (const std::string& folder : foldersOnTheWay) fs::create_directories(outside / ForHost(folder, host));
  for (const std::string& file : filesOnTheWay) Write(outside / ForHost(file, host), secret);
  const std::string session = ForHost("a_Photo_PhotoDesktop_STOLEN_%_Photo", host);
  for (const char* system : {"GlimmerXT", "Glimmer"}) {
    Write(outside / "Library/Logs/Malvex" / system / "SessionInfo" / session, secret);
  }
}

// What counts only when it is younger than the daemon.
void FillOutsideLate(const fs::path& outside, pid_t host) {
  Write(outside / reports / bait, demo::SystemReport(host));
  Write(outside / "Library/Logs/DiagnosticReportsForNewHardware/Photo-other.ips", demo::SystemReport(host));
  const fs::path pending = outside / ForHost("Library/Logs/Malvex/CrashPadDumps/Photo/4.2.0/b7/%/pending", host);
  Write(pending / "5A8B6C1D-0f3e-4D2C-9B7E-1A2B3C4D5E6F.dmp", secret);
}

// One daemon with its world.
struct Trial {
  std::string name;
  const char* figure;
  RootWorld world;
  HostRun run;
  std::unique_ptr<Witness> witness;
  bool reportComes;
  bool hasSecondReportName = false;
  std::string complaint = {};
};

std::vector<std::string> DaemonArguments(const Sandbox& sandbox, pid_t host, const std::string& guid) {
  auto elements = demo::SampleElements();
  elements[demo::daemonElement] = sandbox.Folder() / "bin/CRDaemon";
  elements[demo::processElement] = std::to_string(host);
  elements[demo::reporterElement] = "/bin/true";
  elements[demo::waitElement] = "4";
  elements[demo::userElement] = guid;
  elements[demo::moduleElement] = "1";
  elements[demo::signalElement] = "0";
  return {elements.begin(), elements.end()};
}

class Trials {
 public:
  Trials(const Sandbox& sandbox, fs::path folder) : sandbox_(sandbox), folder_(std::move(folder)) {}

  // `plant` prepares the home before the daemon starts.
  template <typename PlantIt>
  Trial& Start(const std::string& name, const char* figure, bool reportComes, PlantIt plant) {
    const RootWorld world = reliability::MakeRootWorld(sandbox_, folder_ / std::to_string(trials_.size()));
    demo::Program host = sandbox_.StartProgram({"/bin/sleep", "1000"}, "sleep.out");
    FillOutside(world.outside, host.Id());
    plant(world, host.Id());
    auto witness = std::make_unique<Witness>(world.outside);
    const pid_t daemon =
        reliability::StartRootDaemon(sandbox_, world, DaemonArguments(sandbox_, host.Id(), Guid(trials_.size())));
    const fs::path log =
        world.own / "Library/Logs/Malvex/CrDebugLogs" / ("CRLog-CRDaemon-" + std::to_string(daemon) + ".txt");
    trials_.push_back({.name = name,
                       .figure = figure,
                       .world = world,
                       .run = {.daemon = demo::Program(daemon), .host = std::move(host), .logFile = log},
                       .witness = std::move(witness),
                       .reportComes = reportComes});
    return trials_.back();
  }

  // All hosts crash, each leaving a report in the folder from which it is copied.
  void Crash() {
    for (Trial& trial : trials_) {
      if (!trial.run.AwaitMessage("runOnce")) throw std::runtime_error("no daemon watches: " + trial.name);
    }
    for (Trial& trial : trials_) {
      const pid_t host = trial.run.host.Id();
      trial.complaint = trial.witness->Complaint();
      FillOutsideLate(trial.world.outside, host);
      if (trial.hasSecondReportName) {
        fs::create_hard_link(trial.world.outside / reports / bait, trial.world.home / reports / bait);
      }
      trial.witness = std::make_unique<Witness>(trial.world.outside);
      kill(host, SIGSEGV);
      static_cast<void>(trial.run.host.AwaitEnd());
      if (!trial.reportComes) continue;
      sandbox_.Put(trial.world.home / "Library/Logs/DiagnosticReportsForNewHardware/Photo-new.ips",
                   demo::SystemReport(host));
    }
  }

  void Judge(Figures& figures) {
    for (Trial& trial : trials_) {
      const auto status = trial.run.daemon.AwaitEnd();
      const std::string complaint = trial.complaint.empty() ? trial.witness->Complaint() : trial.complaint;
      figures.Count(trial.figure, trial.name + ": " + complaint, status == 0 && complaint.empty());
    }
    const auto receipts = sandbox_.Received();
    for (std::size_t i = 0; i < trials_.size(); ++i) {
      const auto isHis = [&](const auto& receipt) { return receipt.Data("event.user_guid") == Guid(i); };
      const auto count = std::count_if(receipts.begin(), receipts.end(), isHis);
      if (trials_[i].reportComes) figures.Count(delivered, trials_[i].name, count == 1);
    }
    const auto isStolen = [](const auto& receipt) { return !receipt.Data("event.session_guid").empty(); };
    figures.Count(unharmed, "sessions", std::none_of(receipts.begin(), receipts.end(), isStolen));
  }

  [[nodiscard]] const Trial& operator[](std::size_t i) const { return trials_.at(i); }

 private:
  [[nodiscard]] static std::string Guid(std::size_t i) { return "user-" + std::to_string(i); }

  const Sandbox& sandbox_;
  fs::path folder_;
  std::vector<Trial> trials_;
};

void CountOwners(Figures& figures, const fs::path& library) {
  int seen = 0;
  for (const auto& entry : fs::recursive_directory_iterator(library)) {
    struct stat status {};
    const bool isKnown = lstat(entry.path().c_str(), &status) == 0;
    const bool isPrivate = (status.st_mode & 0077U) == 0;
    figures.Count(handedOver, entry.path().string(),
                  isKnown && isPrivate && status.st_uid == demo::OrdinaryAccount().user &&
                      status.st_gid == demo::OrdinaryAccount().group);
    ++seen;
  }
  figures.Count(handedOver, "copy, preferences, module and their folders", seen >= 8);
}

std::string StatusLine(const fs::path& process, const std::string& key) {
  std::istringstream lines(demo::ContentOf(process / "status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(key + ":")) return line.substr(key.size() + 1);
  }
  return {};
}

// The helper of this daemon once it waits for the service, that is, once it is who it wants to be.
bool HelperIsOrdinary(pid_t daemon) {
  const std::string user = std::to_string(demo::OrdinaryAccount().user);
  const std::string ids = "\t" + user + "\t" + user + "\t" + user + "\t" + user;
  const auto isSo = [&] {
    std::error_code vanished;
    for (const auto& process : fs::directory_iterator("/proc", vanished)) {
      if (StatusLine(process.path(), "PPid") != "\t" + std::to_string(daemon)) continue;
      if (StatusLine(process.path(), "Name") != "\tCRDaemon-http") continue;
      return StatusLine(process.path(), "Uid") == ids && StatusLine(process.path(), "CapEff") == "\t0000000000000000" &&
             StatusLine(process.path(), "Groups").find(" 0 ") == std::string::npos;
    }
    return false;
  };
  return demo::Eventually(isSo);
}

void TryDaemons(Figures& figures, const Sandbox& sandbox, const fs::path& folder) {
  Trials trials(sandbox, folder);
  trials.Start("no link", unharmed, true, [](const RootWorld&, pid_t) {});
  for (const std::string& way : foldersOnTheWay) {
    const bool barsCopies = std::string(reports).starts_with(way) || way.ends_with("NewHardware");
    trials.Start("link at " + way, unharmed, !barsCopies, [&](const RootWorld& world, pid_t host) {
      const fs::path path = world.home / ForHost(way, host);
      sandbox.Put(path.parent_path() / "x", "");
      fs::create_directory_symlink(world.outside / ForHost(way, host), path);
    });
  }
  for (const std::string& way : filesOnTheWay) {
    trials.Start("link at " + way, unharmed, true, [&](const RootWorld& world, pid_t host) {
      const fs::path path = world.home / ForHost(way, host);
      sandbox.Put(path.parent_path() / "x", "");
      fs::create_symlink(world.outside / ForHost(way, host), path);
    });
    trials.Start("second name at " + way, spared, true, [&](const RootWorld& world, pid_t host) {
      const fs::path path = world.home / ForHost(way, host);
      sandbox.Put(path.parent_path() / "x", "");
      fs::create_hard_link(world.outside / ForHost(way, host), path);
    });
  }
  trials.Start("link at a report", unharmed, true, [&](const RootWorld& world, pid_t) {
    sandbox.Put(world.home / reports / "x", "");
    fs::create_symlink(world.outside / reports / bait, world.home / reports / bait);
  });
  trials.Start("second name at a report", spared, true, [](const RootWorld&, pid_t) {}).hasSecondReportName = true;
  sandbox.TellService("delay 1000");
  trials.Crash();
  figures.Count(unprivileged, "user, group, capabilities", HelperIsOrdinary(trials[0].run.daemon.Id()));
  trials.Judge(figures);
  CountOwners(figures, trials[0].world.home / "Library");
}

// A folder and a link to another one, which change places all the time.
class Flipper {
 public:
  Flipper(fs::path folder, const fs::path& target) : folder_(std::move(folder)), link_(folder_.string() + "-link") {
    fs::create_directory_symlink(target, link_);
    thread_ = std::thread([this] {
      while (!stopped_) renameat2(AT_FDCWD, folder_.c_str(), AT_FDCWD, link_.c_str(), RENAME_EXCHANGE);
    });
  }
  Flipper(const Flipper&) = delete;
  Flipper& operator=(const Flipper&) = delete;
  ~Flipper() {
    stopped_ = true;
    thread_.join();
  }

 private:
  fs::path folder_;
  fs::path link_;
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

// Everything that the daemon does with files, by the same functions; false when it saw the secret.
bool UseFiles(const std::string& folder) {
  const std::string deep = folder + "/deep/deeper";
  static_cast<void>(platform::MakeFolders(deep));
  static_cast<void>(WriteAtomically(folder + "/replaced", "new"));
  static_cast<void>(WriteAtomically(folder + "/replaced", "new", ModeAndOwner::asTheFileReplaced));
  static_cast<void>(WriteNew(folder + "/made", "new"));
  static_cast<void>(platform::OutputFile::Open(folder + "/replaced", false));
  platform::FileLock lock = platform::FileLock::Try(folder + "/removed");
  if (lock.state() == platform::FileLock::State::held) lock.RemoveAndRelease();
  const platform::FolderLock folderLock(folder);
  platform::RemoveFile(folder + "/made");
  platform::RemoveTree(folder + "/deep");
  platform::RemoveLeftovers(folder, platform::Now());
  const auto bytes = platform::ReadFile(folder + "/secret", platform::smallFileLimitBytes);
  auto listing = platform::Folder::Open(folder);
  while (const auto name = listing ? listing->Next() : std::nullopt) {
    if (*name == "secret") return false;
  }
  return !bytes;
}

void TryRaces(Figures& figures, const Sandbox& sandbox, const fs::path& folder, int rounds) {
  const RootWorld world = reliability::MakeRootWorld(sandbox, folder / "races");
  for (const char* name : {"secret", "replaced", "made", "removed", "deep/deeper/file", ".crd-0123456789abcdef.tmp"}) {
    Write(world.outside / name, secret);
  }
  sandbox.Put(world.home / reports / "x", "");
  const Witness witness(world.outside);
  {
    const Flipper flipper(world.home / reports, world.outside);
    for (int i = 0; i < rounds; ++i) figures.Count(raced, "secret", UseFiles(world.home / reports));
  }
  const std::string complaint = witness.Complaint();
  figures.Count(raced, complaint, complaint.empty());
}

// Root's own, which others may pass through.
struct PrivateFolder {
  PrivateFolder() {
    std::string pattern = fs::temp_directory_path() / "crdaemon-root-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
    path = pattern;
    fs::permissions(path, fs::perms::owner_all | fs::perms::others_exec | fs::perms::group_exec);
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }

  fs::path path;
};

}  // namespace

int main(int count, char* arguments[]) try {
  if (const std::string why = reliability::WhyNoRootDaemon(); !why.empty()) {
    std::cout << "reliability_root: not tried: " << why << std::endl;
    return 0;
  }
  Figures figures;
  const PrivateFolder folder;
  {
    const Sandbox sandbox;
    TryDaemons(figures, sandbox, folder.path);
    TryRaces(figures, sandbox, folder.path, reliability::IsShort(count, arguments) ? 2000 : 50000);
  }
  return figures.Print();
} catch (const std::exception& failure) {
  std::cerr << "reliability_root: " << failure.what() << '\n';
  return 1;
}
