#pragma once

#include <cstddef>
#include <cstdint>

#include "hostkit/posix/Machine.h"

namespace hostkit {

inline constexpr std::size_t framesLimit = 128;

struct Backtrace {
  std::size_t count = 0;
  std::uintptr_t addresses[framesLimit];  // of instructions: the crash itself, then where each call returns to
};

// Lets the unwinder load and allocate what it wants before the first crash.
void PrepareBacktraces();

// Follows the stack of the calling thread from where it was interrupted. By the unwinder first, and when that fails or
// crashes on what is left of the stack, by frame pointers, reading with care. One thread at a time. Safe in a signal
// handler.
void FollowStack(const Registers& registers, Backtrace& backtrace);

// For the handler of a crash in the calling thread: does not return when it was FollowStack's.
void ResumeFollowingStack();

}  // namespace hostkit
