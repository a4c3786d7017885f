// What GNUstep's Foundation lacks of Apple's.
#pragma once

#include_next <Foundation/Foundation.h>

typedef struct {
  NSInteger majorVersion;
  NSInteger minorVersion;
  NSInteger patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo (Stub)
- (NSOperatingSystemVersion)operatingSystemVersion;
@end
