#pragma once

#include <optional>
#include <string>

#include "platform/PropertyList.h"

// The preferences system of the user this process runs as. A domain that is missing or unreadable has no values.
namespace platform {

[[nodiscard]] std::optional<Value> PreferenceValue(const std::string& domain, const std::string& key);
[[nodiscard]] std::optional<Dictionary> PersistentDomain(const std::string& domain);
// Replaces the whole domain and synchronises it. False leaves it as it was.
[[nodiscard]] bool SetPersistentDomain(const std::string& domain, const Dictionary& values);

}  // namespace platform
