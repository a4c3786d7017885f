// Declarations for type-checking where there is no Mac; the real build uses Apple's own header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { gestaltSystemVersion = 'sysv' };

OSErr Gestalt(OSType selector, SInt32* response) STUB_DEPRECATED(10.0, 10.8);

#ifdef __cplusplus
}
#endif
