#include "support/Paths.h"

#include "platform/Users.h"
#include "support/Text.h"

namespace paths {

std::string Join(std::string_view folder, std::string_view name) {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  std::string path(folder);
  path += '/';
  path += name;
  return path;
}

std::string LastComponent(std::string_view path) {
  // Without a "/", npos + 1 is 0: the whole.
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string Parent(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

std::string Extension(std::string_view path) {
  const std::string name = LastComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

std::string ExpandTilde(std::string_view path) {
  if (!path.starts_with('~')) return std::string(path);
  const std::size_t slash = path.find('/');
  const std::string_view user = path.substr(1, slash == std::string_view::npos ? slash : slash - 1);
  const auto home = user.empty() ? platform::HomeFolder() : platform::HomeFolder(std::string(user));
  if (!home) return std::string(path);
  return slash == std::string_view::npos ? *home : Join(*home, path.substr(slash + 1));
}

std::optional<std::string> JoinPlain(std::string folder, std::initializer_list<std::string> components) {
  for (const std::string& component : components) {
    if (component.empty()) continue;
    if (!IsPlainComponent(component)) return std::nullopt;
    folder = Join(folder, component);
  }
  return folder;
}

bool IsPlainComponent(std::string_view text) {
  return !text.empty() && text != "." && text != ".." &&
         text.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

std::string Shown(std::string_view path) {
  constexpr std::string_view digits = "0123456789abcdef";
  const bool isText = text::IsUtf8(path);
  const auto isControl = [&](std::size_t at) {
    const auto byte = static_cast<unsigned char>(path[at]);
    if (byte < 0x80U) return byte < 0x20U || byte == 0x7FU;
    if (!isText) return true;
    // U+0080 to U+009F, both bytes of each.
    const std::size_t first = byte == 0xC2U || at == 0 ? at : at - 1;
    return path[first] == '\xC2' && static_cast<unsigned char>(path[first + 1]) < 0xA0U;
  };
  std::string shown;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (isControl(i)) {
      const auto byte = static_cast<unsigned char>(path[i]);
      shown.append("\\x") += digits[byte >> 4U];
      shown += digits[byte & 15U];
    } else {
      shown += path[i];
    }
  }
  return shown;
}

}  // namespace paths
