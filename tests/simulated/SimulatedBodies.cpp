// The bodies of the remaining headers under platform/, each a line or two over the machine.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/HttpClient.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/System.h"
#include "platform/Tasks.h"
#include "platform/Users.h"
#include "platform/Windows.h"
#include "platform/Workers.h"
#include "tests/simulated/SimulatedMachine.h"

namespace platform {
namespace {
constexpr std::int32_t ownProcessId = 4242;
SimulatedMachine& Machine() { return SimulatedMachine::Current(); }
}  // namespace

Time Now() { return Machine().Now(); }
void SleepFor(std::chrono::milliseconds duration) { Machine().Sleep(duration); }

void WatchHost(std::int32_t /*processId*/) { Machine().hostWatched = true; }
bool HostLives(std::int32_t processId) {
  ++Machine().livenessTests;
  return processId == simulatedHostId ? Machine().hostLives : processId == ownProcessId;
}
std::vector<std::string> ProcessNames() { return Machine().processes; }
std::int32_t CurrentProcessId() { return ownProcessId; }
std::string ProgramFolder() { return "/opt/crdaemon"; }
std::optional<std::string> Environment(const std::string& name) {
  const auto found = Machine().environment.find(name);
  return found == Machine().environment.end() ? std::nullopt : std::optional(found->second);
}
void SettleProcess() {}
std::uint64_t RaiseOpenFileLimit(std::uint64_t files) { return files; }

void ObserveTermination(TerminationHandler handler) { Machine().terminationHandlers.push_back(std::move(handler)); }
void ObserveDistributed(std::optional<std::string> name, DistributedHandler handler) {
  Machine().distributedHandlers.emplace_back(std::move(name), std::move(handler));
}
bool WaitForInput() { return Machine().WaitForInput(); }
void WakeRunLoop() noexcept { Machine().Wake(); }
void WorkerReturned() noexcept { Machine().workerReturned = true; }
void StopDelivery() {
  Machine().terminationHandlers.clear();
  Machine().distributedHandlers.clear();
}

std::optional<std::vector<Window>> OnScreenWindows() {
  ++Machine().windowLists;
  return Machine().windows;
}

// Whatever regular file is there can be started.
Result<std::int32_t> StartTask(const std::string& executable, const std::vector<std::string>& arguments) {
  if (KindOf(executable) != FileKind::regular) return std::errc::no_such_file_or_directory;
  Machine().started.push_back({executable, arguments});
  return static_cast<std::int32_t>(5000 + Machine().started.size());
}
void BringToFront(std::int32_t processId) { Machine().broughtToFront.push_back(processId); }

bool IsRootUser() { return Machine().isRoot; }
bool HasBorrowedRights() { return false; }
std::string UserName() { return Machine().isRoot ? "root" : "anna"; }
std::optional<std::string> ConsoleUser() { return Machine().consoleUser; }
std::optional<std::string> HomeFolder(const std::optional<std::string>& user) {
  const auto found = Machine().homes.find(user.value_or(UserName()));
  return found == Machine().homes.end() ? std::nullopt : std::optional(found->second);
}
std::optional<std::string> LibraryFolder() {
  const auto home = HomeFolder();
  if (!home || MakeFolders(*home + "/Library")) return std::nullopt;
  return *home + "/Library";
}

std::string LocalHostName() { return Machine().hostName; }
bool ReportsAreJson() { return Machine().reportsAreJson; }
std::uint32_t SystemVersionBcd() { return 0x1462; }

struct WorkerGroup::Body {
  std::size_t unfinished = 0;
};
WorkerGroup::WorkerGroup() : body_(std::make_unique<Body>()) {}
WorkerGroup::~WorkerGroup() = default;
void WorkerGroup::Async(std::function<void()> task) {
  ++body_->unfinished;
  Machine().Submit([body = body_.get(), task = std::move(task)] {
    task();
    --body->unfinished;
  });
}
void WorkerGroup::Wait() {
  while (body_->unfinished > 0) {
    if (!Machine().RunOneTask()) throw std::logic_error("waits for a task that waits for it");
  }
}

struct HttpClient::Body {
  std::string url;
  std::vector<std::string> headerLines;
  std::optional<Time> firstPost;
  bool timedOut = false;
};
HttpClient::HttpClient(std::string url, std::vector<std::string> headerLines)
    : body_(std::make_unique<Body>(Body{std::move(url), std::move(headerLines), {}, false})) {}
HttpClient::~HttpClient() = default;
HttpAnswer HttpClient::Post(std::string_view body, const std::function<void()>& meanwhile) {
  if (IsSpent()) return {0, "spent"};
  if (!body_->firstPost) body_->firstPost = Now();
  Machine().posted.push_back({body_->url, body_->headerLines, std::string(body)});
  SimulatedMachine::Answer answer;
  if (!Machine().answers.empty()) {
    answer = Machine().answers.front();
    Machine().answers.pop_front();
  }
  if (meanwhile) meanwhile();
  if (answer.beforeIt) answer.beforeIt();
  if (!answer.timesOut) return {answer.status, answer.error};
  body_->timedOut = true;
  SleepFor(std::chrono::minutes(1));
  return {0, "timed out"};
}
bool HttpClient::IsSpent() const {
  return body_->timedOut || (body_->firstPost && Now() - *body_->firstPost >= std::chrono::seconds(130));
}

}  // namespace platform
