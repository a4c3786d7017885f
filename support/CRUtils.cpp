#include "support/CRUtils.h"

#include "platform/Users.h"

void CRUtils::GetUserLibraryDir(std::string& out) {
  if (auto folder = platform::LibraryFolder()) out = *folder;
}
