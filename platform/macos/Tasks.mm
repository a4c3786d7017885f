#include "platform/Tasks.h"

#include <ApplicationServices/ApplicationServices.h>
#include <unistd.h>

#include <cerrno>

#include "platform/macos/Objects.h"

namespace platform {
namespace {

// Nil when it could not be launched: the system raises an exception, which names no error number.
NSTask* Launch(NSString* executable, NSArray* arguments) {
  @try {
    return [NSTask launchedTaskWithLaunchPath:executable arguments:arguments];
  } @catch (NSException*) {
    return nil;
  }
}

// A folder is executable too, as far as permissions go.
bool IsFolder(NSString* path) {
  BOOL isFolder = NO;
  return [[NSFileManager defaultManager] fileExistsAtPath:path isDirectory:&isFolder] == YES && isFolder == YES;
}

}  // namespace

Result<std::int32_t> StartTask(const std::string& executable, const std::vector<std::string>& arguments) {
  const Pool pool;
  NSMutableArray* const texts = [NSMutableArray arrayWithCapacity:arguments.size()];
  for (const auto& argument : arguments) [texts addObject:ToText(argument)];
  NSString* const path = ToText(executable);
  if (IsFolder(path)) return std::errc::is_a_directory;
  NSTask* const task = Launch(path, texts);
  if (task == nil && access(executable.c_str(), X_OK) != 0) return std::error_code(errno, std::generic_category());
  if (task == nil) return std::errc::argument_list_too_long;
  return [task processIdentifier];
}

void BringToFront(std::int32_t processId) {
  ProcessSerialNumber process{};
#pragma clang diagnostic push
#pragma clang diagnostic ignored \
    "-Wdeprecated-declarations"  // what came after them wants an application, not a process
  if (GetProcessForPID(processId, &process) == noErr) SetFrontProcess(&process);
#pragma clang diagnostic pop
}

}  // namespace platform
