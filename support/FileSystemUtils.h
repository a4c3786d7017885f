#pragma once

#include <string>

namespace FileSystemUtils {

// Whether a file or folder stands at `path`; false for an empty path.
[[nodiscard]] bool DoesPathExist(const std::string& path);

}  // namespace FileSystemUtils
