#include "support/AtomicFile.h"

#include "platform/Files.h"
#include "support/Paths.h"

namespace {

using platform::NewFile;

std::string FolderOf(const std::string& path) {
  std::string parent = paths::Parent(path);
  return parent.empty() ? "." : parent;
}

std::error_code Finish(NewFile& file, const std::string& path, std::string_view bytes) {
  if (const auto error = file.Write(bytes)) return error;
  if (const auto error = file.Sync()) return error;
  if (const auto error = file.Publish(path)) return error;
  return platform::SyncFolder(FolderOf(path));
}

}  // namespace

std::error_code WriteAtomically(const std::string& link, std::string_view bytes, ModeAndOwner modeAndOwner) {
  const std::string path = platform::TargetOf(link);
  auto file = NewFile::Create(FolderOf(path));
  if (!file) return file.Error();
  if (modeAndOwner == ModeAndOwner::asTheFileReplaced) file->TakeModeAndOwnerOf(path);
  return Finish(*file, path, bytes);
}

// A file system or a policy without second names must cost no event, nor must a failure of the moment. What is written
// so has a name of its own, or was looked for just before: nothing of value can be replaced.
std::error_code WriteNew(const std::string& path, std::string_view bytes) {
  auto file = NewFile::Create(FolderOf(path), NewFile::Target::absent);
  const auto error = file ? Finish(*file, path, bytes) : file.Error();
  if (!error || error == std::errc::file_exists || platform::KindOf(path) != platform::FileKind::absent) return error;
  return WriteAtomically(path, bytes);
}
