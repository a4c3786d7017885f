#include "platform/System.h"

#include <CoreServices/CoreServices.h>

#include "platform/macos/Objects.h"

namespace platform {

std::string LocalHostName() {
  const Pool pool;
  return FromText([[NSHost currentHost] localizedName]).value_or("");
}

bool ReportsAreJson() {
  constexpr NSInteger firstOfThem = 12;
  const Pool pool;
  return [[NSProcessInfo processInfo] operatingSystemVersion].majorVersion >= firstOfThem;
}

std::uint32_t SystemVersionBcd() {
  SInt32 version = 0;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"  // nothing else has this format
  const OSErr error = Gestalt(gestaltSystemVersion, &version);
#pragma clang diagnostic pop
  return error == noErr ? static_cast<std::uint32_t>(version) : 0;
}

}  // namespace platform
