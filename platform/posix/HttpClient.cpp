#include "platform/HttpClient.h"

#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>
#include <utility>

#include "platform/Processes.h"
#include "platform/Users.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/HttpFrames.h"
#include "platform/posix/Signals.h"
#include "platform/posix/Sockets.h"
#include "platform/posix/Spawn.h"

namespace platform {
namespace {

using std::chrono::steady_clock;

constexpr char programName[] = "CRDaemon-http";
constexpr auto postLimit = std::chrono::seconds(130);
constexpr auto lastStart = std::chrono::seconds(130);             // of a post, after the first
constexpr auto postLimitAtTermination = std::chrono::seconds(5);  // from the request to end, for all posts together
constexpr auto look = std::chrono::milliseconds(250);             // how often a waiting post looks for that request
constexpr auto exitPatience = std::chrono::seconds(2);
constexpr auto exitPause = std::chrono::milliseconds(1);
constexpr int maxHelpers = 3;

http::Deadline EarliestOf(http::Deadline deadline) {
  const auto request = TerminationRequest();
  return request && deadline ? std::min(*deadline, *request + postLimitAtTermination) : deadline;
}

std::string AboutHelper(const std::string& what) { return std::string("helper ") + programName + " " + what; }

// A running helper process.
class Helper {
 public:
  // Spawned, and told nothing yet.
  static Result<Helper> Start() {
    const std::string folder = ProgramFolder();
    if (folder.empty()) return std::errc::no_such_file_or_directory;
    const auto ends = ConnectedSockets();
    if (!ends) return ends.Error();
    Descriptor ours(ends->first);
    const Descriptor theirs(ends->second);
    const auto process = SpawnHelper(folder + "/" + programName, Arguments(), theirs.Number());
    if (!process) return process.Error();
    return Helper(std::move(ours), *process);
  }

  Helper(Helper&& other) noexcept
      : socket_(std::move(other.socket_)),
        receiver_(std::move(other.receiver_)),
        process_(std::exchange(other.process_, 0)) {}
  Helper& operator=(Helper&&) = delete;
  // Gives it a moment to end by itself.
  ~Helper() {
    socket_.Close();
    if (!AwaitExit()) Kill();
  }

  [[nodiscard]] int Socket() const { return socket_.Number(); }

  // Between two posts it has nothing to say: only its end makes the socket readable.
  [[nodiscard]] bool IsQuiet() const {
    pollfd descriptor{socket_.Number(), POLLIN, 0};
    return !receiver_.HasLeft() && poll(&descriptor, 1, 0) <= 0;
  }

  [[nodiscard]] Result<std::string> Receive(http::Deadline deadline) {
    pollfd descriptor{socket_.Number(), POLLIN, 0};
    while (!receiver_.HasLeft() && poll(&descriptor, 1, static_cast<int>(look.count())) == 0) {
      deadline = EarliestOf(deadline);
      if (steady_clock::now() >= *deadline) return std::errc::timed_out;
    }
    return receiver_.Frame(http::smallFrameLimitBytes, deadline);
  }

  void Kill() {
    if (process_ == 0) return;
    kill(process_, SIGKILL);
    static_cast<void>(AwaitExit());
    process_ = 0;
  }

  // Of a helper that closed its end: how it ended, in words.
  [[nodiscard]] std::string Epitaph() {
    const auto status = AwaitExit();
    if (!status) return AboutHelper("closed its end");
    if (WIFSIGNALED(*status)) return AboutHelper("was ended by signal " + std::to_string(WTERMSIG(*status)));
    return AboutHelper("ended with status " + std::to_string(WEXITSTATUS(*status)));
  }

 private:
  Helper(Descriptor socket, pid_t process)
      : socket_(std::move(socket)), receiver_(socket_.Number()), process_(process) {}

  // Root's helper becomes the console user before it talks to anyone.
  static std::vector<std::string> Arguments() {
    const auto user = IsRootUser() ? ConsoleUser() : std::nullopt;
    return user ? std::vector{*user} : std::vector<std::string>();
  }

  // Reaps it and returns how it ended; none when it still runs after some patience.
  std::optional<int> AwaitExit() {
    const auto deadline = steady_clock::now() + exitPatience;
    int status = 0;
    while (process_ != 0) {
      const pid_t ended = waitpid(process_, &status, WNOHANG);
      if (ended == process_ || (ended < 0 && errno != EINTR)) {
        process_ = 0;
      } else if (steady_clock::now() >= deadline) {
        return std::nullopt;
      } else {
        SleepFor(exitPause);
      }
    }
    return status;
  }

  Descriptor socket_;
  http::Receiver receiver_;
  pid_t process_;  // 0: reaped
};

}  // namespace

struct HttpClient::Body {
  std::string opening;
  std::optional<Helper> helper;
  int helpers = 0;  // started so far
  bool timedOut = false;
  std::optional<steady_clock::time_point> firstPost;

  // Makes sure that there is a helper; else says why not. One that has ended already may have left an answer.
  std::optional<HttpAnswer> Prepare(http::Deadline deadline) {
    if (helper && !helper->IsQuiet()) helper.reset();
    if (helper) return std::nullopt;
    if (helpers == maxHelpers) return HttpAnswer{0, AboutHelper("failed too often")};
    ++helpers;
    auto started = Helper::Start();
    if (!started) return HttpAnswer{0, AboutHelper("could not be started: " + started.Error().message())};
    helper.emplace(std::move(*started));
    const auto error = http::SendBytes(helper->Socket(), opening, deadline);
    return error && error != std::errc::broken_pipe ? std::optional(Fail(error)) : std::nullopt;
  }

  HttpAnswer Exchange(std::string_view body, const std::function<void()>& meanwhile, http::Deadline deadline) {
    // An error of the sending is passed over: a helper that ended early may have left an answer that says why.
    const auto sent = http::SendFrame(helper->Socket(), body, deadline);
    if (sent && sent != std::errc::broken_pipe) return Fail(sent);
    if (meanwhile) {
      // On a processor that both share, the helper goes first.
      std::this_thread::yield();
      meanwhile();
    }
    const auto frame = helper->Receive(deadline);
    if (!frame) return Fail(frame.Error());
    auto reply = http::DecodeReply(*frame);
    if (!reply) return Fail(std::make_error_code(std::errc::bad_message));
    timedOut = reply->timedOut;
    return {reply->status, std::move(reply->error)};
  }

  // Does away with a helper that cannot be talked to.
  HttpAnswer Fail(std::error_code error) {
    std::string text = error == std::errc::broken_pipe ? helper->Epitaph() : std::string();
    if (error == std::errc::timed_out) {
      timedOut = true;
      text = AboutHelper("did not answer in time");
    } else if (text.empty()) {
      text = AboutHelper("broke the protocol: " + error.message());
    }
    helper->Kill();
    helper.reset();
    return {0, std::move(text)};
  }
};

HttpClient::HttpClient(std::string url, std::vector<std::string> headerLines) : body_(std::make_unique<Body>()) {
  body_->opening = http::EncodeOpening({std::move(url), std::move(headerLines)});
}

HttpClient::~HttpClient() = default;

HttpAnswer HttpClient::Post(std::string_view body, const std::function<void()>& meanwhile) {
  if (IsSpent()) return {0, "no more posts after a time-out or " + std::to_string(lastStart.count()) + " s"};
  if (body.size() > http::bodyLimitBytes) return {0, "the body is too large"};
  const auto now = steady_clock::now();
  if (!body_->firstPost) body_->firstPost = now;
  const auto deadline = now + postLimit;
  if (auto failure = body_->Prepare(deadline)) return *failure;
  return body_->Exchange(body, meanwhile, deadline);
}

bool HttpClient::IsSpent() const {
  const auto now = steady_clock::now();
  const auto request = TerminationRequest();
  return body_->timedOut || (body_->firstPost && now - *body_->firstPost >= lastStart) ||
         (request && now - *request >= postLimitAtTermination);
}

}  // namespace platform
