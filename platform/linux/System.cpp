#include "platform/System.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "platform/Files.h"

namespace platform {
namespace {

constexpr std::uint64_t machineInfoLimitBytes = std::uint64_t{64} << 10U;

// A value as a shell would read it: quotes removed, and a backslash outside single quotes.
std::string Unquoted(std::string_view value) {
  std::string text;
  char quote = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char character = value[i];
    if (character == '\\' && quote != '\'' && i + 1 < value.size()) {
      text += value[++i];
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

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
  return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

// The last assignment counts.
std::string PrettyHostName(std::string_view machineInfo) {
  constexpr std::string_view key = "PRETTY_HOSTNAME=";
  std::string name;
  while (!machineInfo.empty()) {
    const std::string_view line = machineInfo.substr(0, machineInfo.find('\n'));
    machineInfo.remove_prefix(std::min(line.size() + 1, machineInfo.size()));
    const std::string_view assignment = Trimmed(line);
    if (assignment.starts_with(key)) name = Unquoted(assignment.substr(key.size()));
  }
  return name;
}

// The numbers of "6.1.0-18-amd64", those missing 0.
std::array<std::uint32_t, 3> Numbers(std::string_view release) {
  std::array<std::uint32_t, 3> numbers{};
  for (std::uint32_t& number : numbers) {
    const auto [end, error] = std::from_chars(release.data(), release.data() + release.size(), number);
    release.remove_prefix(static_cast<std::size_t>(end - release.data()));
    if (error != std::errc() || !release.starts_with('.')) break;
    release.remove_prefix(1);
  }
  return numbers;
}

}  // namespace

std::string LocalHostName() {
  if (const auto machineInfo = ReadFile("/etc/machine-info", machineInfoLimitBytes)) {
    if (auto name = PrettyHostName(*machineInfo); !name.empty()) return name;
  }
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

bool ReportsAreJson() { return true; }

std::uint32_t SystemVersionBcd() {
  struct utsname system {};
  if (uname(&system) != 0) return 0;
  const auto [major, minor, patch] = Numbers(system.release);
  const std::uint32_t shown = std::min(major, 99U);
  return (shown / 10U) << 12U | (shown % 10U) << 8U | std::min(minor, 9U) << 4U | std::min(patch, 9U);
}

}  // namespace platform
