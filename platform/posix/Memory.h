#pragma once

namespace platform {

// Gives back to the system what was used once and is not used now: the threads of workers that have ended, the heap's
// free pages, those of the calling thread's stack below the frames in use and, once in a process, the pages of program
// files. For before a long wait, and for the end of a thread.
void ReleaseUnusedMemory() noexcept;

// The first part of it.
void ReleaseEndedThreads() noexcept;

}  // namespace platform
