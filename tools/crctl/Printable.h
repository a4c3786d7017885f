#pragma once

#include <string>
#include <string_view>

namespace crctl {

enum class LineBreaks { escaped, kept };

// Foreign text for a terminal or a pipe, which must not take a piece of it for a command: control characters (C0, DEL,
// C1) become "\u001b", malformed bytes "\xff". Everything else stays, so that JSON keeps its meaning.
[[nodiscard]] std::string Printable(std::string_view text, LineBreaks lineBreaks = LineBreaks::escaped);

}  // namespace crctl
