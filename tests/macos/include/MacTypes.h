// The names of the Mac's types.
#pragma once
#include <stdint.h>
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int16_t OSErr;
typedef int32_t SInt32, OSStatus;
typedef uint32_t UInt32, OSType;
typedef struct {
  UInt32 highLongOfPSN, lowLongOfPSN;
} ProcessSerialNumber;
enum { noErr = 0, procNotFound = -600 };
