// Declarations for type-checking where there is no Mac; the real build uses Apple's own header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

OSStatus GetProcessForPID(pid_t process, ProcessSerialNumber* number) STUB_DEPRECATED(10.0, 10.9);
OSErr SetFrontProcess(const ProcessSerialNumber* number) STUB_DEPRECATED(10.0, 10.9);

#ifdef __cplusplus
}
#endif
