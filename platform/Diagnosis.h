#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Result.h"

// What a person wants to know of this machine when no report arrives. The daemon itself never asks. Nothing here
// changes anything; one thread.
namespace platform {

// Of the entry itself, never of what a link points to.
struct Access {
  std::uint32_t permissions = 0;  // the nine bits
  std::string owner;
  bool isOwn = false;  // it belongs to the user this process runs as
  bool isReadable = false;
  bool isWritable = false;
  bool isExecutable = false;
};
[[nodiscard]] std::optional<Access> AccessOf(const std::string& path);

// Whether this user may run it; a link counts as what it points to.
[[nodiscard]] bool IsProgram(const std::string& path);

struct Space {
  std::uint64_t freeBytes = 0;
  std::uint64_t freeFiles = 0;
};
// Left to this user where `path`, which exists, lies.
[[nodiscard]] Result<Space> SpaceAt(const std::string& path);

// Who holds the lock on that file; none when nobody does, or nobody that may be seen. Takes no lock.
[[nodiscard]] std::optional<std::int32_t> LockHolder(const std::string& path);

// Whether the system tells how a process ended that is not our child, tried on one.
[[nodiscard]] bool TellsExitStatus();

struct Lookup {
  std::vector<std::string> addresses;
  std::string error;  // empty with addresses
};
// As long as the system's resolver takes.
[[nodiscard]] Lookup LookUp(const std::string& host);

struct RunningProgram {
  std::int32_t processId = 0;
  std::vector<std::string> arguments;  // element 0 is the program
};
// The living processes of that whole name that belong to the user this process runs as.
[[nodiscard]] std::vector<RunningProgram> RunningPrograms(const std::string& name);

}  // namespace platform
