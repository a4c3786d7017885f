#pragma once

#include <cstdint>
#include <string>

namespace platform {

// The name that people gave this machine, blanks and all.
[[nodiscard]] std::string LocalHostName();

// Whether this system writes crash reports as JSON with the extension "ips"; otherwise they are text with "crash".
[[nodiscard]] bool ReportsAreJson();

// The system's version, four bits a decimal digit (0x1095 is 10.9.5); 0 when unknown.
[[nodiscard]] std::uint32_t SystemVersionBcd();

}  // namespace platform
