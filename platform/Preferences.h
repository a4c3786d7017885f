#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/PropertyList.h"

// The preferences system of the user this process runs as. A domain that is missing or unreadable has no values.
namespace platform {

[[nodiscard]] std::optional<Value> PreferenceValue(const std::string& domain, const std::string& key);
[[nodiscard]] std::optional<Dictionary> PersistentDomain(const std::string& domain);
// Calls `change` once with the domain's values, none when it is missing or unreadable, and replaces the whole domain
// with what it made of them when it answers true; all of it under the lock that other writers of preferences take.
// False: it answered true, and the domain is as it was.
[[nodiscard]] bool ChangePersistentDomain(const std::string& domain, const std::function<bool(Dictionary&)>& change);
[[nodiscard]] inline bool SetPersistentDomain(const std::string& domain, const Dictionary& values) {
  return ChangePersistentDomain(domain, [&values](Dictionary& all) {
    all = values;
    return true;
  });
}

}  // namespace platform
