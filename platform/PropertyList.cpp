#include "platform/PropertyList.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace platform {

Dictionary::Dictionary() = default;

Dictionary::Dictionary(Members members) : members_(std::move(members)) {
  // Equal keys come together, in their order.
  std::vector<std::size_t> sorted(members_.size());
  std::iota(sorted.begin(), sorted.end(), std::size_t{0});
  std::sort(sorted.begin(), sorted.end(), [this](std::size_t left, std::size_t right) {
    return std::tie(members_[left].first, left) < std::tie(members_[right].first, right);
  });
  std::vector<bool> repeated(members_.size());
  std::size_t first = 0;
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    if (members_[sorted[i]].first != members_[sorted[first]].first) {
      first = i;
      continue;
    }
    members_[sorted[first]].second = std::move(members_[sorted[i]].second);
    repeated[sorted[i]] = true;
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < members_.size(); ++i) {
    if (repeated[i]) continue;
    if (kept != i) members_[kept] = std::move(members_[i]);
    ++kept;
  }
  members_.resize(kept);
}

Dictionary::Dictionary(std::initializer_list<std::pair<std::string, Value>> members) {
  for (const auto& [key, value] : members) Set(key, value);
}

const Value* Dictionary::Find(std::string_view key) const {
  const auto found =
      std::find_if(members_.begin(), members_.end(), [key](const auto& member) { return member.first == key; });
  return found == members_.end() ? nullptr : &found->second;
}

void Dictionary::Set(std::string key, Value value) {
  const auto found =
      std::find_if(members_.begin(), members_.end(), [&key](const auto& member) { return member.first == key; });
  if (found == members_.end()) {
    members_.emplace_back(std::move(key), std::move(value));
  } else {
    found->second = std::move(value);
  }
}

void Dictionary::Remove(std::string_view key) {
  std::erase_if(members_, [key](const auto& member) { return member.first == key; });
}

Dictionary::Members Dictionary::TakeMembers() && { return std::move(members_); }

std::size_t Dictionary::size() const { return members_.size(); }

const std::pair<std::string, Value>* Dictionary::begin() const { return members_.data(); }

const std::pair<std::string, Value>* Dictionary::end() const { return members_.data() + members_.size(); }

bool operator==(const Dictionary& left, const Dictionary& right) { return left.members_ == right.members_; }

}  // namespace platform
