#include "platform/Preferences.h"

#include <string_view>
#include <system_error>
#include <utility>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Users.h"

namespace platform {
namespace {

struct DomainFile {
  std::string folder;
  std::string path;
};

std::optional<DomainFile> FileOf(const std::string& domain) {
  if (domain.empty() || domain.find('/') != std::string::npos) return std::nullopt;
  const auto library = LibraryFolder();
  if (!library) return std::nullopt;
  const std::string folder = *library + "/Preferences";
  return DomainFile{folder, folder + "/" + domain + ".plist"};
}

std::optional<Dictionary> DictionaryOf(std::string_view bytes) {
  const auto root = ParsePropertyList(bytes);
  const auto* dictionary = root ? root->As<Dictionary>() : nullptr;
  return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

// Whole or not at all, with mode and owner of `model` if there is one.
std::error_code Replace(const std::string& path, const std::string& model, std::string_view bytes) {
  const std::string folder = path.substr(0, path.find_last_of('/'));
  auto file = NewFile::Create(folder);
  if (!file) return file.Error();
  file->TakeModeAndOwnerOf(model);
  if (const auto error = file->Write(bytes)) return error;
  if (const auto error = file->Sync()) return error;
  if (const auto error = file->Publish(path)) return error;
  return SyncFolder(folder);
}

// Whether the file may be replaced now: what does not parse has been kept beside, what cannot be read stays.
bool MayReplace(const DomainFile& file) {
  const auto bytes = ReadFile(file.path, smallFileLimitBytes);
  if (!bytes) return bytes.Error() == std::errc::no_such_file_or_directory;
  if (DictionaryOf(*bytes)) return true;
  const std::string aside = file.path + ".damaged-" + std::to_string(Now().time_since_epoch().count());
  return !Replace(aside, file.path, *bytes);
}

}  // namespace

std::optional<Dictionary> PersistentDomain(const std::string& domain) {
  const auto file = FileOf(domain);
  if (!file) return std::nullopt;
  const auto bytes = ReadFile(file->path, smallFileLimitBytes);
  return bytes ? DictionaryOf(*bytes) : std::nullopt;
}

std::optional<Value> PreferenceValue(const std::string& domain, const std::string& key) {
  const auto values = PersistentDomain(domain);
  const Value* value = values ? values->Find(key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

bool ChangePersistentDomain(const std::string& domain, const std::function<bool(Dictionary&)>& change) {
  const auto file = FileOf(domain);
  const bool hasFolder = file && !MakeFolders(file->folder);
  const FolderLock lock(hasFolder ? file->folder : std::string());
  auto values = PersistentDomain(domain).value_or(Dictionary());
  if (!change(values)) return true;
  const auto xml = WritePropertyList(Value(Value::State(std::move(values))));
  if (!xml || !hasFolder || !MayReplace(*file)) return false;
  const std::string target = TargetOf(file->path);
  return !Replace(target, target, *xml);
}

}  // namespace platform
