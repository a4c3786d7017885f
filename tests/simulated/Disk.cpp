#include "tests/simulated/Disk.h"

#include <algorithm>
#include <utility>

#include "support/Text.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

const auto missing = std::make_error_code(std::errc::no_such_file_or_directory);
const auto noFolder = std::make_error_code(std::errc::not_a_directory);

// One "/" before each part, none at the end; the root folder is the empty text.
std::string Absolute(const std::string& path) {
  std::string result;
  for (const auto part : text::Split(path, '/')) {
    if (!part.empty()) result.append("/").append(part);
  }
  return result;
}

std::string ParentOf(const std::string& absolute) { return absolute.substr(0, absolute.rfind('/')); }

// The home folder of nobody.
bool IsUnexpanded(const std::string& path) { return path.starts_with('~'); }

std::string Scripted(const std::string& path) {
  return Absolute(path.starts_with("~/") ? simulatedHome + path.substr(1) : path);
}

}  // namespace

void Disk::Put(const std::string& path, std::string bytes, std::optional<platform::Time> created) {
  MakeFolders(ParentOf(Scripted(path)));
  Add(Scripted(path), {.bytes = std::move(bytes), .created = created});
}

void Disk::Make(Kind kind, const std::string& path) {
  MakeFolders(ParentOf(Scripted(path)));
  Add(Scripted(path), {.kind = kind});
}

void Disk::Fail(const std::string& path, std::errc error) { failures_[Scripted(path)] = error; }

void Disk::LockForSomebodyElse(const std::string& path) {
  if (!Has(path)) Put(path);
  Find(Scripted(path))->locked = true;
}

void Disk::LosePower() {
  for (const auto& [path, node] : std::unordered_map(nodes_)) {
    if (!node.synced || !node.placed) Remove(path);
  }
}

bool Disk::Has(const std::string& path) const { return Find(Scripted(path)) != nullptr; }

std::string Disk::Text(const std::string& path) const { return Has(path) ? Find(Scripted(path))->bytes : "(absent)"; }

std::vector<std::string> Disk::Paths() const {
  std::vector<std::string> paths;
  for (const auto& [path, node] : nodes_) paths.push_back(path + (node.kind == Kind::folder ? "/" : ""));
  std::ranges::sort(paths);
  return paths;
}

std::vector<std::string> Disk::Names(const std::string& folder) const {
  return Has(folder) ? Find(Scripted(folder))->names : std::vector<std::string>();
}

Disk::Node* Disk::Find(const std::string& path) const {
  const auto found = IsUnexpanded(path) ? nodes_.end() : nodes_.find(Absolute(path));
  return found == nodes_.end() ? nullptr : &found->second;
}

std::error_code Disk::FailureOf(const std::string& path) const {
  const auto found = failures_.find(Absolute(path));
  return found == failures_.end() ? std::error_code() : std::make_error_code(found->second);
}

std::error_code Disk::Add(const std::string& path, Node node) {
  const std::string absolute = Absolute(path);
  Node* parent = Find(ParentOf(absolute));
  if (parent == nullptr || IsUnexpanded(path)) return missing;
  if (parent->kind != Kind::folder) return noFolder;
  if (!nodes_.contains(absolute)) parent->names.push_back(absolute.substr(absolute.rfind('/') + 1));
  if (node.id == 0) node.id = ++lastId_;
  nodes_[absolute] = std::move(node);
  return {};
}

void Disk::Remove(const std::string& path) {
  const std::string absolute = Absolute(path), folder = absolute + "/";
  if (Find(absolute) == nullptr) return;
  for (const std::string& name : std::vector(Find(absolute)->names)) Remove(folder + name);
  std::erase(Find(ParentOf(absolute))->names, absolute.substr(absolute.rfind('/') + 1));
  nodes_.erase(absolute);
}

std::error_code Disk::MakeFolders(const std::string& path) {
  const std::string absolute = Absolute(path);
  if (IsUnexpanded(path)) return missing;
  if (const auto error = FailureOf(absolute)) return error;
  if (const Node* node = Find(absolute)) return node->kind == Kind::folder ? std::error_code() : noFolder;
  if (const auto error = MakeFolders(ParentOf(absolute))) return error;
  const bool isPrivate = absolute.starts_with(simulatedHome + std::string("/"));
  return Add(absolute, {.kind = Kind::folder, .mode = isPrivate ? 0700U : 0755U});
}

std::error_code Disk::Rename(const std::string& from, const std::string& to) {
  if (const auto error = FailureOf(to)) return error;
  const Node* old = Find(to);
  if (old != nullptr && old->kind == Kind::folder) return std::make_error_code(std::errc::is_a_directory);
  Node node = *Find(from);
  node.placed = false;
  Remove(from);
  return Add(to, std::move(node));
}
