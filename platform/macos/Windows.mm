#include "platform/Windows.h"

#include <CoreGraphics/CoreGraphics.h>

#include "platform/macos/Objects.h"

namespace platform {
namespace {

Window FromEntry(NSDictionary* entry) {
  NSNumber* const number = [entry objectForKey:Bridged<NSString>(kCGWindowNumber)];
  return {FromText([entry objectForKey:Bridged<NSString>(kCGWindowOwnerName)]),
          FromText([entry objectForKey:Bridged<NSString>(kCGWindowName)]), FromText([number stringValue]).value_or("")};
}

}  // namespace

std::optional<std::vector<Window>> OnScreenWindows() {
  const Pool pool;
  NSArray* const entries = Owned<NSArray>(CGWindowListCopyWindowInfo(kCGWindowListOptionOnScreenOnly, kCGNullWindowID));
  if (entries == nil) return std::nullopt;
  std::vector<Window> windows;
  windows.reserve([entries count]);
  for (NSDictionary* entry in entries) windows.push_back(FromEntry(entry));
  return windows;
}

}  // namespace platform
