#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace reliability {

// A file as an attacker or a broken disk could leave it. Made when it is needed, since each is large.
struct Content {
  std::string name;
  std::function<std::string()> bytes;
  bool isSound = false;  // a property list that must be read for all that
};

// Of about `bytes` each.
[[nodiscard]] std::vector<Content> HostileReports(std::size_t bytes);
[[nodiscard]] std::vector<Content> HostilePropertyLists();

}  // namespace reliability
