#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

// Texts that name files. Nothing here touches a file.
namespace paths {

// One "/" between the two, whether or not `folder` ends with one.
[[nodiscard]] std::string Join(std::string_view folder, std::string_view name);

// What follows the last "/".
[[nodiscard]] std::string LastComponent(std::string_view path);

// What stands before the last "/"; "/" for a file in the root folder, empty when there is no "/".
[[nodiscard]] std::string Parent(std::string_view path);

// What follows the last "." of the last component; empty when there is none, or nothing before it.
[[nodiscard]] std::string Extension(std::string_view path);

// A leading "~" becomes this user's home folder, "~name" that user's. Unknown: the text as it is.
[[nodiscard]] std::string ExpandTilde(std::string_view path);

// `folder` and each of the texts from outside below the one before, empty ones left out; none when one of them is not a
// plain component.
[[nodiscard]] std::optional<std::string> JoinPlain(std::string folder, std::initializer_list<std::string> components);

// Whether a text from outside may become one component of a path: not empty, not "." or "..", without "/" and NUL.
[[nodiscard]] bool IsPlainComponent(std::string_view text);

// As the log shows a path that somebody else made up: one line, with \xNN for control characters and, where the path is
// no UTF-8, for every byte beyond ASCII.
[[nodiscard]] std::string Shown(std::string_view path);

}  // namespace paths
