#include "platform/posix/Spawn.h"

#include <spawn.h>
#include <unistd.h>

#include <csignal>
#include <optional>

#include "platform/posix/SpawnStreams.h"

// No system's header has to, and one does.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace platform {
namespace {

class SpawnAttributes {
 public:
  SpawnAttributes() { posix_spawnattr_init(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }

  void ResetSignals(bool ownGroup) {
    sigset_t all{};
    sigset_t none{};
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | (ownGroup ? POSIX_SPAWN_SETPGROUP : 0);
    posix_spawnattr_setflags(&attributes_, static_cast<short>(flags | streamsOnlyFlag));
  }
  [[nodiscard]] const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }

  // False: out of memory.
  [[nodiscard]] bool Duplicate(int from, int to) { return posix_spawn_file_actions_adddup2(&actions_, from, to) == 0; }
  [[nodiscard]] bool KeepStreamsOnly() { return AddStreamsOnly(actions_); }
  [[nodiscard]] const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

Result<pid_t> Spawn(const std::string& executable, std::vector<std::string> arguments, std::optional<int> stream) {
  arguments.insert(arguments.begin(), executable);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (auto& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  SpawnActions actions;
  SpawnAttributes attributes;
  attributes.ResetSignals(stream.has_value());
  const bool prepared =
      (!stream || (actions.Duplicate(*stream, STDIN_FILENO) && actions.Duplicate(*stream, STDOUT_FILENO))) &&
      actions.KeepStreamsOnly();
  if (!prepared) return std::errc::not_enough_memory;
  pid_t process = 0;
  const int error =
      posix_spawn(&process, executable.c_str(), actions.Get(), attributes.Get(), pointers.data(), environ);
  if (error != 0) return std::error_code(error, std::generic_category());
  return process;
}

}  // namespace

Result<pid_t> SpawnTask(const std::string& executable, const std::vector<std::string>& arguments) {
  return Spawn(executable, arguments, std::nullopt);
}

Result<pid_t> SpawnHelper(const std::string& executable, const std::vector<std::string>& arguments, int stream) {
  return Spawn(executable, arguments, stream);
}

}  // namespace platform
