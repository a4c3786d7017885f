#include "platform/Users.h"

#include <SystemConfiguration/SystemConfiguration.h>
#include <unistd.h>

#include <array>

#include "platform/macos/Check.h"
#include "platform/macos/Objects.h"

namespace platform {
namespace {

// Empty when nobody is logged in at the console.
std::string GetLoggedInUserName() {
  NSObject* const store =
      Owned<NSObject>(SCDynamicStoreCreate(kCFAllocatorDefault, Bridged(@"GetConsoleUser"), nullptr, nullptr));
  Check(store != nil, "store != NULL");
  const auto session = static_cast<SCDynamicStoreRef>(static_cast<const void*>(store));
  NSString* const name = Owned<NSString>(SCDynamicStoreCopyConsoleUser(session, nullptr, nullptr));
  if (name == nil) return {};
  std::array<char, 256> bytes{};
  const bool ok = [name getCString:bytes.data() maxLength:bytes.size() encoding:NSUTF8StringEncoding] == YES;
  Check(ok, "ok == true");
  return bytes.data();
}

}  // namespace

bool IsRootUser() { return getuid() == 0; }

bool HasBorrowedRights() { return getuid() != geteuid() || getgid() != getegid(); }

std::string UserName() {
  const Pool pool;
  return FromText(NSUserName()).value_or("");
}

std::optional<std::string> ConsoleUser() {
  const Pool pool;
  auto name = GetLoggedInUserName();
  return name.empty() ? std::nullopt : std::optional(std::move(name));
}

std::optional<std::string> HomeFolder(const std::optional<std::string>& user) {
  const Pool pool;
  return FromText(user ? NSHomeDirectoryForUser(ToText(*user)) : NSHomeDirectory());
}

std::optional<std::string> LibraryFolder() {
  const Pool pool;
  NSURL* const library = [[NSFileManager defaultManager] URLForDirectory:NSLibraryDirectory
                                                                inDomain:NSUserDomainMask
                                                       appropriateForURL:nil
                                                                  create:YES
                                                                   error:nullptr];
  return FromText([library path]);
}

}  // namespace platform
