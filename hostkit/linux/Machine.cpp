#include "hostkit/posix/Machine.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

namespace hostkit {
namespace {

std::optional<std::string> HomeOf(uid_t user) {
  std::vector<char> buffer(std::size_t{64} << 10U);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return std::nullopt;
  return entry.pw_dir;
}

std::optional<std::string> HomeOfConsoleUser() {
  uid_t user = 0;
  char* session = nullptr;
  const bool isActive = sd_seat_get_active("seat0", &session, &user) >= 0;
  std::free(session);
  return isActive ? HomeOf(user) : std::nullopt;
}

std::optional<std::string> OwnHome() {
  const char* home = secure_getenv("HOME");
  return home != nullptr && home[0] == '/' ? std::optional<std::string>(home) : HomeOf(getuid());
}

// As a shell would read it: quotes removed, and a backslash outside single quotes.
std::string Unquoted(const std::string& value) {
  std::string text;
  char quote = 0;
  for (std::size_t at = 0; at < value.size(); ++at) {
    const char character = value[at];
    if (character == '\\' && quote != '\'' && at + 1 < value.size()) {
      text += value[++at];
    } else if (character == quote) {
      quote = 0;
    } else if (quote == 0 && (character == '"' || character == '\'')) {
      quote = character;
    } else {
      text += character;
    }
  }
  return text;
}

// The last assignment counts.
std::string PrettyHostName() {
  constexpr std::string_view key = "PRETTY_HOSTNAME=";
  std::ifstream machineInfo("/etc/machine-info");
  std::string name;
  for (std::string line; std::getline(machineInfo, line);) {
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line.compare(begin, key.size(), key) != 0) continue;
    const std::string value = line.substr(begin + key.size());
    name = Unquoted(value.substr(0, value.find_last_not_of(" \t\r") + 1));
  }
  return name;
}

}  // namespace

const short streamsOnlyFlag = 0;

bool AddStreamsOnly(posix_spawn_file_actions_t& actions) {
  return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0;
}

std::string LocalHostName() {
  if (std::string name = PrettyHostName(); !name.empty()) return name;
  char name[256] = "";
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::optional<std::string> UserLibrary() {
  const auto home = getuid() == 0 ? HomeOfConsoleUser() : OwnHome();
  return home ? std::optional(*home + "/Library") : std::nullopt;
}

std::string SystemName() {
  utsname system{};
  return uname(&system) == 0 ? std::string("Linux ") + system.release : "Linux";
}

// Its start in ticks since boot is the 20th field behind the process's name, which may hold anything.
std::optional<std::time_t> LaunchTime() {
  std::ifstream file("/proc/self/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos) return std::nullopt;
  std::istringstream fields(line.substr(nameEnd + 1));
  constexpr int fieldsBefore = 19;
  std::string passedOver;
  for (int field = 0; field < fieldsBefore; ++field) fields >> passedOver;
  long long ticks = 0;
  timespec sinceBoot{};
  if (!(fields >> ticks) || clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) return std::nullopt;
  return std::time(nullptr) - sinceBoot.tv_sec + ticks / sysconf(_SC_CLK_TCK);
}

const char* ReportExtension() { return "ips"; }

}  // namespace hostkit
