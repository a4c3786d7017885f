#include "demo/Program.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

namespace demo {
namespace {

constexpr Account nobody{65534, 65534};

[[noreturn]] void Fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

bool BecomeOrdinary() {
  if (getuid() != 0) return true;
  return setgroups(0, nullptr) == 0 && setresgid(nobody.group, nobody.group, nobody.group) == 0 &&
         setresuid(nobody.user, nobody.user, nobody.user) == 0;
}

}  // namespace

bool Eventually(const std::function<bool()>& holds, std::chrono::milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string ContentOf(const std::filesystem::path& path) {
  std::ostringstream content;
  if (std::ifstream file(path, std::ios::binary); file && file.peek() != EOF) content << file.rdbuf();
  return content.str();
}

Account OrdinaryAccount() { return getuid() == 0 ? nobody : Account{getuid(), getgid()}; }

Program::Program(std::vector<std::string> command, const std::map<std::string, std::string>& environment,
                 const std::filesystem::path& output) {
  std::vector<std::string> variables;
  variables.reserve(environment.size());
  for (const auto& [name, value] : environment) variables.emplace_back(name).append("=").append(value);
  const auto arguments = Pointers(command);
  const auto variablePointers = Pointers(variables);

  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  int input[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) Fail("socketpair");
  const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) Fail(output);
  id_ = fork();
  if (id_ == 0) {
    const bool ready = dup2(input[0], STDIN_FILENO) == STDIN_FILENO && dup2(file, STDOUT_FILENO) == STDOUT_FILENO &&
                       dup2(file, STDERR_FILENO) == STDERR_FILENO && BecomeOrdinary() &&
                       prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0;
    if (ready) execve(arguments[0], arguments.data(), variablePointers.data());
    _exit(127);
  }
  close(file);
  close(input[0]);
  input_ = input[1];
  if (id_ < 0) {
    close(input_);
    Fail("fork");
  }
}

Program::Program(Program&& other) noexcept
    : id_(std::exchange(other.id_, -1)), input_(std::exchange(other.input_, -1)), status_(other.status_) {}

Program::~Program() {
  if (input_ >= 0) close(input_);
  if (id_ <= 0 || status_) return;
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
}

void Program::Say(std::string_view line) const {
  const std::string text = std::string(line) + "\n";
  send(input_, text.data(), text.size(), MSG_NOSIGNAL);
}

std::optional<int> Program::Status() {
  int status = 0;
  if (!status_ && waitpid(id_, &status, WNOHANG) == id_) status_ = status;
  return status_;
}

std::optional<int> Program::AwaitEnd(std::chrono::milliseconds deadline) {
  static_cast<void>(Eventually([this] { return Status().has_value(); }, deadline));
  return status_;
}

}  // namespace demo
