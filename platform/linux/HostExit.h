#pragma once

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/posix/Descriptor.h"

namespace platform {

// Learns how a process that is not our child ended. A pidfd is readable from the moment the process is a zombie and
// hung up from the moment it is reaped; the kernel (6.15 and later) tells the status from then on. Where it cannot,
// /proc has it as long as there is a zombie of our own user. Else nobody has, and the end is not announced.
class HostExit {
 public:
  // Once, before other threads start.
  void Watch(std::int32_t processId);

  // Any thread.
  [[nodiscard]] bool Lives(std::int32_t processId);
  // Any thread: when the end of the watched process was first seen, since the system's start; none before. An id that
  // is none counts as ended when the watch began.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> EndSeen() const;

  // The rest: main thread.
  [[nodiscard]] std::int32_t Id() const { return id_; }
  // What to poll for next; no descriptor (-1) when nothing more can be learnt.
  [[nodiscard]] pollfd Input() const;
  // When the input fired: the exit code or the number of the signal, at most once. May take a tenth of a second.
  [[nodiscard]] std::optional<std::int64_t> TakeStatus(short events);
  // Whether there is no end to wait for: it has come, or there is no watch.
  [[nodiscard]] bool IsOver() const { return stage_ != Stage::living; }

 private:
  // `unreaped`: a zombie whose status only its parent's reaping may still bring to light.
  enum class Stage { unwatched, living, unreaped, over };

  void NoteEnd();

  std::int32_t id_ = 0;
  bool wasGone_ = false;
  Descriptor process_;
  Stage stage_ = Stage::unwatched;
  std::atomic<std::chrono::nanoseconds::rep> endSeen_ = 0;  // 0: not yet
};

// The one that WatchHost and HostLives work on.
[[nodiscard]] HostExit& WatchedHost();

}  // namespace platform
