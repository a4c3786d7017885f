// What GNUstep's AppKit lacks of Apple's.
#pragma once

#include_next <AppKit/AppKit.h>

#ifdef __cplusplus
extern "C" {
#endif

extern NSString* const NSWorkspaceApplicationKey;

#ifdef __cplusplus
}
#endif
