// Declarations for type-checking where there is no Mac; the real build uses Apple's own header.
#pragma once

#include <MacTypes.h>

#define STUB_BRIDGE(Class) __attribute__((objc_bridge(Class)))
#define STUB_DEPRECATED(since, until) __attribute__((availability(macos, introduced = since, deprecated = until)))
#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))

#ifdef __cplusplus
extern "C" {
#endif

typedef const STUB_BRIDGE(id) void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct STUB_BRIDGE(NSString) __CFString* CFStringRef;
typedef const struct STUB_BRIDGE(NSArray) __CFArray* CFArrayRef;
typedef long CFIndex;

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFStringRef kCFPreferencesCurrentUser;
extern const CFStringRef kCFPreferencesCurrentHost;

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID, CFStringRef user,
                                         CFStringRef host) CF_RETURNS_RETAINED;
Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef user, CFStringRef host);

#ifdef __cplusplus
}
#endif
