#include "support/AtomicFile.h"

#include "platform/Files.h"
#include "support/Paths.h"

std::error_code WriteAtomically(const std::string& path, std::string_view bytes, ModeAndOwner modeAndOwner) {
  const std::string parent = paths::Parent(path);
  const std::string folder = parent.empty() ? "." : parent;
  auto file = platform::NewFile::Create(folder);
  if (!file) return file.Error();
  if (modeAndOwner == ModeAndOwner::asTheFileReplaced) file->TakeModeAndOwnerOf(path);
  if (const auto error = file->Write(bytes)) return error;
  if (const auto error = file->Sync()) return error;
  if (const auto error = file->Publish(path)) return error;
  return platform::SyncFolder(folder);
}
