// The C functions of the Mac that no library here has, and a home folder that follows the environment.
#include "tests/macos/Fakes.h"

#include <ApplicationServices/ApplicationServices.h>
#include <CoreGraphics/CoreGraphics.h>
#include <CoreServices/CoreServices.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dlfcn.h>
#include <pwd.h>
#include <signal.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/macos/Objects.h"

using platform::Bridged;

namespace {

// All processes, or the one asked for. When they began is left out.
std::vector<kinfo_proc> ReadTable(const std::string& wanted) {
  std::vector<kinfo_proc> table;
  for (const auto& folder : std::filesystem::directory_iterator("/proc")) {
    const std::string id = folder.path().filename();
    std::ifstream file(folder.path() / "stat");
    std::string line;
    if (std::isdigit(id[0]) == 0 || (!wanted.empty() && id != wanted) || !std::getline(file, line)) continue;
    const std::size_t begin = line.find('(') + 1, end = line.rfind(')');
    kinfo_proc& record = table.emplace_back();
    line.copy(record.kp_proc.p_comm, std::min<std::size_t>(end - begin, 16), begin);
    record.kp_proc.p_stat = line[end + 2] == 'Z' ? SZOMB : 0;
  }
  return table;
}

}  // namespace

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFStringRef kCFPreferencesCurrentUser = Bridged(@"user");
const CFStringRef kCFPreferencesCurrentHost = Bridged(@"host");
const CFStringRef kCGWindowName = Bridged(@"kCGWindowName");
const CFStringRef kCGWindowNumber = Bridged(@"kCGWindowNumber");
const CFStringRef kCGWindowOwnerName = Bridged(@"kCGWindowOwnerName");

int sysctl(int* name, unsigned names, void* old, size_t* oldBytes, void*, size_t) {
  const auto table = ReadTable(names == 4 && name[2] == KERN_PROC_PID ? std::to_string(name[3]) : std::string());
  const std::size_t bytes = table.size() * sizeof(kinfo_proc);
  const bool hasGrown = old != nullptr && std::exchange(fakes::mayTableGrow, false);
  if (hasGrown || (old != nullptr && *oldBytes < bytes)) {
    errno = ENOMEM;
    return -1;
  }
  *oldBytes = bytes;
  if (old != nullptr) std::ranges::copy(table, static_cast<kinfo_proc*>(old));
  return 0;
}

// GNUstep asks nothing else for a home.
int getpwnam_r(const char* name, passwd* entry, char* bytes, size_t size, passwd** found) {
  static const auto ask = reinterpret_cast<decltype(&getpwnam_r)>(dlsym(RTLD_NEXT, "getpwnam_r"));
  const int error = ask(name, entry, bytes, size, found);
  if (error == 0 && *found != nullptr && entry->pw_uid == getuid()) entry->pw_dir = getenv("HOME");
  return error;
}

int issetugid() { return fakes::hasChangedIds ? 1 : 0; }

CFArrayRef CGWindowListCopyWindowInfo(CGWindowListOption option, CGWindowID window) {
  const bool isOnScreenOnly = option == kCGWindowListOptionOnScreenOnly && window == 0;
  return isOnScreenOnly ? static_cast<CFArrayRef>(static_cast<const void*>([fakes::windows retain])) : nullptr;
}

Boolean CFPreferencesSynchronize(CFStringRef, CFStringRef, CFStringRef) { return 1; }

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user, CFStringRef host) {
  if (user != kCFPreferencesCurrentUser || host != kCFPreferencesCurrentHost) return nullptr;
  NSDictionary* domain = [[NSUserDefaults standardUserDefaults] persistentDomainForName:Bridged<NSString>(application)];
  return [[domain objectForKey:Bridged<NSString>(key)] retain];
}

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef, CFStringRef, SCDynamicStoreCallBack, SCDynamicStoreContext*) {
  return static_cast<SCDynamicStoreRef>(static_cast<const void*>([[NSObject alloc] init]));
}

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t*, gid_t*) {
  const char* name = getenv("CONSOLE_USER");
  return store == nullptr || name == nullptr ? nullptr : Bridged([platform::ToText(name) retain]);
}

OSErr Gestalt(OSType selector, SInt32* response) {
  *response = 0x1095;
  return selector == 'sysv' ? noErr : OSErr{-5551};
}

OSStatus GetProcessForPID(pid_t process, ProcessSerialNumber* number) {
  number->lowLongOfPSN = static_cast<UInt32>(process);
  return kill(process, 0) == 0 ? noErr : procNotFound;
}

OSErr SetFrontProcess(const ProcessSerialNumber* number) {
  fakes::frontProcess = static_cast<std::int32_t>(number->lowLongOfPSN);
  return noErr;
}

}  // extern "C"

@implementation NSProcessInfo (OperatingSystemVersion)
- (NSOperatingSystemVersion)operatingSystemVersion {
  return {12, 0, 1};
}
@end
