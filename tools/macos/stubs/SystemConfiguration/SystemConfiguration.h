// Declarations for type-checking where there is no Mac; the real build uses Apple's own header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore* SCDynamicStoreRef;
typedef struct SCDynamicStoreContext SCDynamicStoreContext;
typedef void (*SCDynamicStoreCallBack)(SCDynamicStoreRef store, CFArrayRef changedKeys, void* info);

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name, SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context) CF_RETURNS_RETAINED;
CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* user, gid_t* group) CF_RETURNS_RETAINED;

#ifdef __cplusplus
}
#endif
