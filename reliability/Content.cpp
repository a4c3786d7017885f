// Files as hostile as can be, read by the code that the daemon reads them with: no crash, no hang, no more memory than
// a small multiple of the file, and what is sound is still found.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/CrashedModule.h"
#include "CRDaemon/DiagnosticPaths.h"
#include "CRDaemon/Ingester.h"
#include "CRDaemon/ProcessValues.h"
#include "CRDaemon/ReportMatching.h"
#include "reliability/Figures.h"
#include "reliability/HostileContent.h"
#include "reliability/Trial.h"
#include "support/CRLogger.h"
#include "support/FixedNames.h"
#include "utilities/source/Glimmer/Glimmer.h"

namespace {

namespace fs = std::filesystem;
using platform::Dictionary;
using platform::Value;
using reliability::Content;
using reliability::FailureOf;
using reliability::Figures;

constexpr std::size_t reportBytes = 60'000'000;
constexpr std::size_t shortReportBytes = 3'000'000;
constexpr std::uint64_t fixedBytes = std::uint64_t{8} << 20U;
constexpr char processId[] = "4711";
constexpr uid_t ordinaryUser = 65534;

// A home folder with an empty Library, gone with this object. As root there would be no user whose Library to read.
class Home {
 public:
  Home() {
    if (geteuid() == 0 && (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)) {
      throw std::runtime_error("cannot become an ordinary user");
    }
    std::string pattern = fs::temp_directory_path() / "content-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder to work in");
    folder_ = pattern;
    setenv("HOME", folder_.c_str(), 1);
    ProcessWide() = InitialProcessValues();
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  ~Home() { fs::remove_all(folder_); }

  fs::path Put(const fs::path& name, const std::string& bytes) const {
    fs::path path = folder_ / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

 private:
  fs::path folder_;
};

void Try(Figures& figures, const char* what, const std::string& name, std::uint64_t memoryBytes,
         const std::function<bool()>& action, int steps = 1) {
  const std::string failure = FailureOf(action, memoryBytes + fixedBytes, steps);
  figures.Count(what, name + (failure.empty() ? "" : ": " + failure), failure.empty());
}

// Every report makes an event that the queue takes, but for a JSON report of a single line, which is an error.
bool BecomesAnEvent(const std::string& path, bool isSingleLine) {
  const conversion::Sender sender = {"Photo", "1.2", "9.0", "session", "user"};
  try {
    const Dictionary event = EventOfReport(path, "0", sender);
    const Value* name = event.Find("source.name");
    return !isSingleLine && name != nullptr && *name == Value("Photo") && platform::WritePropertyList(Value(event));
  } catch (const std::out_of_range&) {
    return isSingleLine;
  }
}

// One file must not keep the one beside it from being found.
bool IsTheOneFound(const std::string& folder, const std::string& name) {
  auto entries = platform::Folder::Open(folder);
  std::string found;
  while (auto entry = entries->Next()) {
    if (!reports::IsCandidateName(*entry, "Photo") || !reports::KindOfReport(*entry, "ips", processId)) continue;
    const auto report = AcceptReportText(*entry, entries->Read(*entry, platform::reportLimitBytes));
    if (*entry == name && report && reports::NamesProcess(*report, processId)) found = *entry;
    if (report) static_cast<void>(reports::HasBinaryImage(*report, "com.malvex.Photo"));
  }
  return found == name;
}

bool ModuleIsLookedFor(const std::string& path) {
  const auto report = ReadReportText(path);
  if (!report) return true;
  const auto lines = crashedmodule::LinesFromJson(*report);
  // The image asked for is one past the last, so that the line of the module is empty.
  const bool isRight = report->find("\"imageIndex\":") == std::string::npos || (lines && *lines == "\n");
  return crashedmodule::LinesFromText(*report).size() < 4096 && isRight;
}

void TryReports(Figures& figures, const Home& home, std::size_t bytes) {
  home.Put("reports/Photo-good.ips", "{}\n{\n \"pid\" : 4711\n}");
  for (const Content& content : reliability::HostileReports(bytes)) {
    const std::string path = home.Put("reports/Photo-1.ips", content.bytes());
    const std::uint64_t size = fs::file_size(path);
    const bool isSingleLine = content.name == "JSON, one line" || content.name == "JSON, opening braces";
    Try(figures, "hostile reports that became an event", content.name, 0,
        [&] { return BecomesAnEvent(path, isSingleLine); });
    Try(figures, "hostile reports that hid no good one", content.name, 2 * size,
        [&] { return IsTheOneFound(fs::path(path).parent_path(), "Photo-good.ips"); });
    Try(figures, "hostile reports searched for a module", content.name, 3 * size,
        [&] { return ModuleIsLookedFor(path); });
  }
}

// What is read can be written, and comes back as it was.
bool IsReadSoundly(const std::string& path, bool isSound) {
  const auto bytes = platform::ReadFile(path, 2 * platform::smallFileLimitBytes);
  const auto value = platform::ParsePropertyList(*bytes);
  if (!value) return !isSound;
  const auto written = platform::WritePropertyList(*value);
  return written || !isSound;
}

bool IsKeptAside(const fs::path& preferences, std::uint64_t size) {
  for (const auto& entry : fs::directory_iterator(preferences.parent_path())) {
    if (entry.path().string().find(".damaged-") != std::string::npos) return entry.file_size() == size;
  }
  return false;
}

constexpr int stepsOfReading = 2;   // parse, write
constexpr int stepsOfARewrite = 3;  // read, store, read

// A new key beside all that was there; what cannot be understood is kept aside, and too much is left alone.
bool IsKeptByARewrite(const fs::path& path, const Content& content) {
  const std::uint64_t size = fs::file_size(path);
  const auto before = preferences::Read();
  const bool isStored = preferences::Store("key", "value");
  const auto after = preferences::Read();
  if (!isStored) return !content.isSound && fs::file_size(path) == size;
  if (!before) return after && after->size() == 1 && IsKeptAside(path, size);
  return after && after->size() == before->size() + 1;
}

void TryPropertyLists(Figures& figures, const Home& home) {
  const std::string name = std::string("Library/Preferences/") + names::preferencesDomain + ".plist";
  for (const Content& content : reliability::HostilePropertyLists()) {
    const std::string bytes = content.bytes();
    const fs::path path = home.Put(name, bytes);
    // Our values, the library's, its text, ours; and each byte that is no UTF-8 is written as three.
    const std::uint64_t memory = 16 * bytes.size();
    Try(
        figures, "hostile property lists read", content.name, memory,
        [&] { return IsReadSoundly(path, content.isSound); }, stepsOfReading);
    Try(
        figures, "hostile preferences kept", content.name, memory, [&] { return IsKeptByARewrite(path, content); },
        stepsOfARewrite);
    fs::remove_all(path.parent_path());
  }
}

void TrySessionNames(Figures& figures, const Home& home, int count) {
  const std::string folder = home.Put("sessions/a_b_c_session_4711_Photo.sif", "").parent_path();
  const std::array<std::string, 6> names = {std::string(255, '_'),
                                            "_4711_Photo" + std::string(240, '_'),
                                            std::string(240, '\xFF') + "_4711_Photo",
                                            "\n\t\x01",
                                            "_4711_Photo",
                                            std::string(120, '_') + "_F_N_" + std::string(120, '_')};
  for (const std::string& name : names) home.Put(fs::path(folder) / name, "");
  for (int i = 0; i < count; ++i) home.Put(fs::path(folder) / (std::string(200, '_') + std::to_string(i)), "");
  struct Query {
    std::string application, id, family, name;
  };
  for (const Query& query : {Query{"Photo", processId, "", ""},
                             {"Photo", processId, "F", "N"},
                             {"", "", "_", "_"},
                             {std::string(1 << 20U, '_'), "_", std::string(1 << 20U, '_'), "N"}}) {
    Try(figures, "hostile session names read", query.application.substr(0, 8) + "/" + query.family.substr(0, 8),
        16 << 20U, [&] {
          Glimmer lookup;
          const auto found =
              lookup.getGlimmerSessionIDFromSIFFile(query.application, query.id, query.family, query.name, folder);
          return !found || found->size() < 256;
        });
  }
}

void TryMarkerFiles(Figures& figures, const Home& home) {
  const std::size_t most = platform::smallFileLimitBytes;
  for (const std::string& part : {std::string("\n"), std::string("append = 1\n"), std::string(" =;,"),
                                  std::string(1, '\0'), std::string("append,\xFF\n"), std::string("a = \n")}) {
    std::string settings;
    while (settings.size() + part.size() <= most) settings += part;
    const fs::path path = home.Put(std::string("Library") + names::debugLogs + names::markerFile, settings);
    Try(figures, "hostile marker files read", std::to_string(static_cast<int>(part.front())), 2 * most, [&] {
      CRLogger::Logger::GetLogger("Content")->LogInfo("a line", "");
      const auto folder = fs::directory_iterator(path.parent_path());
      return std::count_if(begin(folder), end(folder), [](const auto& entry) {
               return entry.path().filename().string().starts_with("CRLog-Content-") && entry.file_size() > 0;
             }) > 0;
    });
    fs::remove_all(path.parent_path());
  }
}

}  // namespace

int main(int count, char* arguments[]) try {
  const bool isShort = reliability::IsShort(count, arguments);
  const Home home;
  Figures figures;
  TryReports(figures, home, isShort ? shortReportBytes : reportBytes);
  TryPropertyLists(figures, home);
  TrySessionNames(figures, home, isShort ? 1000 : 20'000);
  TryMarkerFiles(figures, home);
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "content: " << error.what() << '\n';
  return 1;
}
