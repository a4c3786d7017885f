#include "support/Guid.h"

#include <cstddef>
#include <cstdint>
#include <random>

std::string NewGuid() {
  // Version 4, variant 1: what is left of 128 random bits without these six.
  std::string guid = "xxxxxxxx-xxxx-4xxx-Vxxx-xxxxxxxxxxxx";
  std::random_device source;
  std::uint32_t bits = 0;
  int digitsLeft = 0;
  for (char& digit : guid) {
    if (digit != 'x' && digit != 'V') continue;
    if (digitsLeft == 0) {
      bits = source();
      digitsLeft = 8;
    }
    const std::uint32_t nibble = digit == 'V' ? (bits & 0x3U) | 0x8U : bits & 0xFU;
    digit = "0123456789ABCDEF"[nibble];
    bits >>= 4U;
    --digitsLeft;
  }
  return guid;
}
