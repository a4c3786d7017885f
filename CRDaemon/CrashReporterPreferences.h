#pragma once

#include <optional>
#include <string>

#include "platform/PropertyList.h"

// The preferences file of the crash reporter, reached directly. It belongs to the reporter: all it holds besides the
// daemon's own keys survives, in its order.
namespace preferences {

[[nodiscard]] std::string FilePath();

// None when the file is missing, refused, unreadable or no dictionary.
[[nodiscard]] std::optional<platform::Dictionary> Read();

// Sets `key`, or removes it when there is no value, and replaces the file as a whole. A file that does not parse is
// kept beside under another name; one that is refused or cannot be read is never written. False when nothing was
// stored.
bool Store(const std::string& key, const std::optional<std::string>& value);

// The key of the report last handled for one build of a product; what is unset has a stand-in, what is empty stays so.
[[nodiscard]] std::string StoredCrashKey(const std::string& application, const std::string& version,
                                         const std::optional<std::string>& build);

// The integer value of a text or number; 0 for everything else.
[[nodiscard]] std::int32_t IntegerOf(const platform::Value& value);

}  // namespace preferences

// Whether the user chose never to send.
[[nodiscard]] bool isCRDisabled();
