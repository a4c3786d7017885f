#pragma once

#import <Foundation/Foundation.h>

#include <cstdint>
#include <string>

// What the functions of the Mac that this system lacks answer, and what they were asked for.
namespace fakes {

inline NSArray* windows = nil;
inline std::int32_t frontProcess = 0;
inline bool mayTableGrow = false;  // between the question for its size and the one for what is in it
inline bool hasChangedIds = false;

}  // namespace fakes
