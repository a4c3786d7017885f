#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Starting, feeding and ending other programs, for the demonstration and the end-to-end tests. One thread. What cannot
// be started is a std::system_error.
namespace demo {

// Nothing here waits for a time to pass: it waits for something to be so, and this is how long at most.
inline constexpr std::chrono::seconds patience{60};

[[nodiscard]] bool Eventually(const std::function<bool()>& holds, std::chrono::milliseconds deadline = patience);

// The whole file, or nothing when it is not there.
[[nodiscard]] std::string ContentOf(const std::filesystem::path& path);

struct Account {
  uid_t user;
  gid_t group;
};

// The caller's own, or that of an unprivileged user when the caller is root: as root the daemon serves the user at the
// console, of whom there is none here.
[[nodiscard]] Account OrdinaryAccount();

// A process that ends, by its id and nothing else, with this object.
class Program {
 public:
  // Runs as the ordinary account with this environment and no more; its output goes to the end of the file `output`.
  Program(std::vector<std::string> command, const std::map<std::string, std::string>& environment,
          const std::filesystem::path& output);
  // Takes charge of a process that another program started. Its status can be had once that program is gone, since
  // orphans become children of this process.
  explicit Program(pid_t orphan) : id_(orphan) {}
  Program(Program&& other) noexcept;
  Program& operator=(Program&&) = delete;
  ~Program();

  [[nodiscard]] pid_t Id() const { return id_; }

  // A line for its standard input, which nobody reads once it is gone.
  void Say(std::string_view line) const;

  // As of waitpid; none while it runs.
  [[nodiscard]] std::optional<int> Status();
  // None when it is still running at the deadline.
  [[nodiscard]] std::optional<int> AwaitEnd(std::chrono::milliseconds deadline = patience);

 private:
  pid_t id_;
  int input_ = -1;
  std::optional<int> status_;
};

}  // namespace demo
