#pragma once

#include <string>

namespace CRUtils {

// The path of this user's Library folder. Without one, `out` keeps its value.
void GetUserLibraryDir(std::string& out);

}  // namespace CRUtils
