#include "support/FileSystemUtils.h"

#include "platform/Files.h"

bool FileSystemUtils::DoesPathExist(const std::string& path) {
  return !path.empty() && platform::KindOf(path) != platform::FileKind::absent;
}
