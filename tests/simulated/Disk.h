#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "platform/Clock.h"

// The file system of the simulated machine: a tree in memory whose folders list their entries in the order of creation.
// Links lead nowhere, but what refuses links refuses them.
class Disk {
 public:
  enum class Kind { regular, folder, link, fifo };
  struct Node {
    Kind kind = Kind::regular;
    std::string bytes = {};
    unsigned mode = 0600;
    std::optional<platform::Time> created = platform::Now();
    bool immutable = false;
    bool locked = false;
    bool synced = true;                   // the bytes
    bool placed = true;                   // the name
    std::uint64_t id = 0;                 // never used twice
    std::vector<std::string> names = {};  // of a folder
  };

  // --- For the script. A leading "~" is the user's home; missing parents are made.
  void Put(const std::string& path, std::string bytes = {}, std::optional<platform::Time> created = platform::Now());
  void Make(Kind kind, const std::string& path);
  // From now on whatever opens, makes, replaces or removes `path` fails so.
  void Fail(const std::string& path, std::errc error);
  void LockForSomebodyElse(const std::string& path);
  // Files that were not synced are gone, and so are those renamed in a folder that was not synced since.
  void LosePower();
  bool full = false;  // nothing can be written

  [[nodiscard]] bool Has(const std::string& path) const;
  [[nodiscard]] std::string Text(const std::string& path) const;
  [[nodiscard]] std::vector<std::string> Names(const std::string& folder) const;
  // The absolute paths of everything, folders with a slash at the end.
  [[nodiscard]] std::vector<std::string> Paths() const;

  // --- For the bodies behind platform/Files.h. Relative paths start at the root folder.
  [[nodiscard]] Node* Find(const std::string& path) const;
  [[nodiscard]] std::error_code FailureOf(const std::string& path) const;
  // Fails without a parent folder. What is there is replaced and keeps its place in the order.
  std::error_code Add(const std::string& path, Node node);
  // A folder goes with all it holds.
  void Remove(const std::string& path);
  std::error_code MakeFolders(const std::string& path);
  std::error_code Rename(const std::string& from, const std::string& to);

 private:
  mutable std::unordered_map<std::string, Node> nodes_ = {
      {"", {.kind = Kind::folder, .created = {}}}};  // by absolute path
  std::map<std::string, std::errc> failures_;
  std::uint64_t lastId_ = 0;
};
