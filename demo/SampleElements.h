#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace demo {

// Places among the daemon's arguments.
inline constexpr std::size_t daemonElement = 0;  // its own path
inline constexpr std::size_t processElement = 1;
inline constexpr std::size_t reporterElement = 5;
inline constexpr std::size_t waitElement = 24;  // seconds to wait for a report
inline constexpr std::size_t userElement = 26;
inline constexpr std::size_t moduleElement = 28;  // whether to log the crashed module
inline constexpr std::size_t signalElement = 30;  // whether the host handles signals
inline constexpr std::size_t allElements = 31;

// What the daemon of a sample application is started with; for the caller to name the daemon, the process and the
// reporter.
inline std::array<std::string, allElements> SampleElements() {
  return {"",
          "",
          "Photo",
          "4.2",
          "/usr/share/icons/photo.png",
          "",
          "0",
          "",
          "",
          "",
          "",
          "Photo quit unexpectedly.",
          "4.2.0",
          "b7",
          "Photo",
          "PhotoDesktop",
          "Photo",
          "0",
          "1.0",
          "0",
          "",
          "",
          "2.1",
          "1",
          "20",
          "0",
          "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11",
          "X86-64",
          "0",
          "subscription",
          "1"};
}

}  // namespace demo
