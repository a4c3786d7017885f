#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace reliability {

// Something in a folder that a program must pass by: named, neither opened for long, followed, changed nor removed.
struct HostileEntry {
  std::string kind;
  std::filesystem::path path;
  std::string before;  // what could be seen of it

  // With what a link points to.
  [[nodiscard]] bool IsUntouched() const;
};

// Its kind, identity, size, dates of change and, of a link, the target.
[[nodiscard]] std::string Fingerprint(const std::filesystem::path& path);

// Everything that can lie in wait under a name that begins and ends so: FIFO, socket, device (root can make one), links
// to a file, to nothing, to itself and to /dev/zero, a folder, a sparse file of 6 GB, and names of 255 bytes, without
// UTF-8 and of two lines. Belongs to the ordinary account.
[[nodiscard]] std::vector<HostileEntry> PlantAll(const std::filesystem::path& folder, std::string_view begin,
                                                 std::string_view end);

// One of those kinds at that very place.
[[nodiscard]] HostileEntry Plant(std::string_view kind, const std::filesystem::path& path);

// The kinds whose names do not matter.
[[nodiscard]] std::vector<std::string> HostileKinds();

}  // namespace reliability
