#include "platform/PropertyList.h"

#include <algorithm>

namespace platform {

Dictionary::Dictionary() = default;

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

std::size_t Dictionary::size() const { return members_.size(); }

const std::pair<std::string, Value>* Dictionary::begin() const { return members_.data(); }

const std::pair<std::string, Value>* Dictionary::end() const { return members_.data() + members_.size(); }

bool operator==(const Dictionary& left, const Dictionary& right) { return left.members_ == right.members_; }

}  // namespace platform
