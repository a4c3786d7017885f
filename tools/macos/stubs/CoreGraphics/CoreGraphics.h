// Declarations for type-checking where there is no Mac; the real build uses Apple's own header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef UInt32 CGWindowID;
typedef UInt32 CGWindowListOption;

enum { kCGNullWindowID = 0, kCGWindowListOptionOnScreenOnly = 1 << 0 };

extern const CFStringRef kCGWindowName;
extern const CFStringRef kCGWindowNumber;
extern const CFStringRef kCGWindowOwnerName;

CFArrayRef CGWindowListCopyWindowInfo(CGWindowListOption option, CGWindowID relativeToWindow) CF_RETURNS_RETAINED;

#ifdef __cplusplus
}
#endif
