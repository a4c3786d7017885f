#pragma once

#include <string>

namespace crctl {

// The file whose existence turns the debug log on; the logs stand beside it.
[[nodiscard]] std::string MarkerPath();

}  // namespace crctl
