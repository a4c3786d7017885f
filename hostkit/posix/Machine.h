#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

// What the kit asks of the system, with a body for each: Machine.cpp while all is well, CrashedThread.cpp in a handler.
namespace hostkit {

// By which a spawned program inherits nothing but its standard streams. False: out of memory.
[[nodiscard]] bool AddStreamsOnly(posix_spawn_file_actions_t& actions);
extern const short streamsOnlyFlag;

// As the daemon knows the machine.
[[nodiscard]] std::string LocalHostName();

// The Library folder that the daemon of this user looks into. None: it has none.
[[nodiscard]] std::optional<std::string> UserLibrary();

// Name and version.
[[nodiscard]] std::string SystemName();

// When this process began; none where the system does not tell.
[[nodiscard]] std::optional<std::time_t> LaunchTime();

// Of a report of a crash, as the daemon expects it of this system.
[[nodiscard]] const char* ReportExtension();

// Tells every process of the user's session that the process of that id does what `name` says. An error number, 0 for
// none; never takes longer than two seconds.
[[nodiscard]] int PostNotification(const std::string& name, const std::string& processId);

// From here on, safe in a signal handler.

struct Registers {
  std::uintptr_t instruction;
  std::uintptr_t stack;
  std::uintptr_t frame;
  std::uintptr_t caller;  // where a call that went astray returns to; 0: on top of the stack
};
[[nodiscard]] Registers RegistersOf(const void* context);

[[nodiscard]] pid_t ThreadNumber();

using NameBuffer = char[64];
// The name of the calling thread.
[[nodiscard]] std::string_view ThreadName(NameBuffer& buffer);
// Empty for a process that cannot be asked.
[[nodiscard]] std::string_view ProcessName(pid_t process, NameBuffer& buffer);

// A file of code in the memory of this process.
struct Image {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  std::string_view path;
};
using VisitImage = void (*)(const Image& image, void* context);
// One thread at a time.
void ForEachImage(VisitImage visit, void* context);

}  // namespace hostkit
