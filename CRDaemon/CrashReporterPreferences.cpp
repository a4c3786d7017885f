#include "CRDaemon/CrashReporterPreferences.h"

#include <algorithm>
#include <limits>

#include "CRDaemon/ProcessValues.h"
#include "platform/Files.h"
#include "support/AtomicFile.h"
#include "support/FixedNames.h"
#include "support/Guid.h"
#include "support/Log.h"
#include "support/Paths.h"
#include "support/Text.h"

namespace preferences {
namespace {

std::optional<platform::Dictionary> DictionaryOf(std::string_view bytes) {
  const platform::Result<platform::Value> root = platform::ParsePropertyList(bytes);
  const auto* dictionary = root ? root->As<platform::Dictionary>() : nullptr;
  return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

// The dictionary to change; none when the file must not be replaced.
std::optional<platform::Dictionary> ReadForRewrite(const std::string& path) {
  const platform::Result<std::string> bytes = platform::ReadFile(path, platform::smallFileLimitBytes);
  if (!bytes) {
    if (bytes.Error() == std::errc::no_such_file_or_directory) return platform::Dictionary();
    LogError("preferences are left alone: " + path + ": " + bytes.Error().message());
    return std::nullopt;
  }
  if (auto dictionary = DictionaryOf(*bytes)) return dictionary;

  const std::string aside = path + ".damaged-" + NewGuid();
  if (const std::error_code error = WriteNew(aside, *bytes)) {
    LogError("damaged preferences could not be kept as " + aside + ": " + error.message());
    return std::nullopt;
  }
  LogError("damaged preferences are kept as " + aside);
  return platform::Dictionary();
}

}  // namespace

std::string FilePath() {
  return paths::ExpandTilde(
      paths::Join(ProcessWide().UserLibrary, std::string("Preferences/") + names::preferencesDomain + ".plist"));
}

std::optional<platform::Dictionary> Read() {
  const platform::Result<std::string> bytes = platform::ReadFile(FilePath(), platform::smallFileLimitBytes);
  return bytes ? DictionaryOf(*bytes) : std::nullopt;
}

bool Store(const std::string& key, const std::optional<std::string>& value) {
  const std::string path = FilePath();
  const std::string folder = paths::Parent(path);
  if (platform::MakeFolders(folder)) return false;
  const platform::FolderLock lock(folder);

  auto dictionary = ReadForRewrite(path);
  if (!dictionary) return false;
  if (value) {
    dictionary->Set(key, *value);
  } else {
    dictionary->Remove(key);
  }
  const platform::Result<std::string> xml = platform::WritePropertyList(platform::Value(*dictionary));
  return xml && !WriteAtomically(path, *xml, ModeAndOwner::asTheFileReplaced);
}

std::string StoredCrashKey(const std::string& application, const std::string& version,
                           const std::optional<std::string>& build) {
  return names::lastCrashKeyPrefix + application + "_" + version + "_" + build.value_or("unspecified");
}

std::int32_t IntegerOf(const platform::Value& value) {
  constexpr std::int64_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  if (const auto* text = value.As<std::string>()) return text::IntegerValue(*text);
  if (const auto* flag = value.As<bool>()) return *flag ? 1 : 0;
  if (const auto* number = value.As<std::int64_t>()) return static_cast<std::int32_t>(std::clamp(*number, least, most));
  if (value.As<std::uint64_t>() != nullptr) return static_cast<std::int32_t>(most);
  if (const auto* real = value.As<double>(); real != nullptr && *real == *real) {
    return static_cast<std::int32_t>(std::clamp(*real, static_cast<double>(least), static_cast<double>(most)));
  }
  return 0;
}

}  // namespace preferences

bool isCRDisabled() {
  const auto values = preferences::Read();
  if (!values) {
    LogError("Not able to access CR preference");
    return false;
  }
  const platform::Value* choice = values->Find(names::alwaysNeverSend);
  if (choice == nullptr || preferences::IntegerOf(*choice) != 2) return false;
  LogError("always_never_send flag is set to 2 in CR preference");
  return true;
}
