#pragma once

#include <optional>
#include <string_view>

namespace reports {

enum class DumpKind { compressed, plain };

// By the whole name: "GUID.dmp.gz" or "GUID.dmp", where any one character may stand for a dot. None for other names and
// for hidden ones.
[[nodiscard]] std::optional<DumpKind> KindOfDump(std::string_view name);

}  // namespace reports
