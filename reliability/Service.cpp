// What the ingest service, the network between, and the helper program can do wrong, each tried on a daemon of its own
// with one event in its queue: the event stays unless a status below 400 came, the log says what it was, and the exit
// waits no longer than it may.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <set>

#include "platform/posix/HttpFrames.h"
#include "reliability/Figures.h"
#include "reliability/Home.h"
#include "reliability/RawService.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using demo::HostRun;
using demo::Sandbox;
using reliability::Answer;
using reliability::Certificate;
using reliability::Connection;
using reliability::Figures;
using reliability::Greeting;
using reliability::Home;
using reliability::RawService;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr char transportError[] = "failed to send HTTP request with error: ";
constexpr char statusError[] = "the ingest service answered with status ";
// What the rest of an exit takes, on a machine that has other work.
constexpr seconds slack{20};

struct Case {
  std::string figure;
  std::string name;
  std::function<void(Connection&)> talk = {};
  std::string says = {};  // in the log; empty: the event is delivered
  seconds exitLimit = 0s;
  Greeting greeting = Greeting::handshake;
  std::string altName = "IP:127.0.0.1";
  int firstDay = -1;
  int lastDay = 2;
  bool isTrusted = true;
  std::string helper = {};  // a shell script in its place
  int events = 1;
};

// Each request is answered in the same way.
std::function<void(Connection&)> Always(const std::string& answer) {
  return [answer](Connection& connection) {
    while (connection.TakeRequest() && connection.Send(answer)) {
    }
  };
}

// The first request gets this, and the connection ends.
std::function<void(Connection&)> Once(const std::string& answer) {
  return [answer](Connection& connection) {
    if (connection.TakeRequest()) connection.Send(answer);
  };
}

// A beginning, and then bytes until the other side has gone.
std::function<void(Connection&)> Endless(const std::string& begin, const std::string& piece,
                                         std::chrono::milliseconds pause = 0ms) {
  return [=](Connection& connection) {
    if (!connection.TakeRequest()) return;
    connection.Send(begin);
    while (connection.Pause(pause) && connection.Send(piece)) {
    }
  };
}

std::vector<Case> StayingCases() {
  const std::string what = "service fails: event stays, log says why";
  std::vector<Case> cases = {
      {.figure = what, .name = "refuses", .says = "Couldn't connect"},
      {.figure = what, .name = "resets", .says = "reset by peer", .greeting = Greeting::reset},
      {.figure = what, .name = "speaks no TLS", .says = "wrong version", .greeting = Greeting::noTls},
      {.figure = what,
       .name = "resets after the request",
       .talk =
           [](Connection& connection) {
             if (connection.TakeRequest()) connection.Reset();
           },
       .says = "reset by peer"},
      {.figure = what, .name = "closes without an answer", .talk = Once(""), .says = "Empty reply"},
      {.figure = what, .name = "no status line", .talk = Once("hello\r\n\r\n"), .says = "HTTP/0.9"},
      {.figure = what,
       .name = "breaks off in the body",
       .talk = Once("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789"),
       .says = "90 bytes remaining"},
      {.figure = what,
       .name = "breaks off in a chunk",
       .talk = Once("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nff\r\n0123456789"),
       .says = "transfer closed"},
      {.figure = what,
       .name = "gigabytes of header lines",
       .talk = Endless("HTTP/1.1 200 OK\r\n", "X-Line: " + std::string(1000, 'x') + "\r\n"),
       .says = "header"},
      {.figure = what,
       .name = "wrong name",
       .talk = Always(Answer(200)),
       .says = "subject name",
       .altName = "DNS:a.example"},
      {.figure = what,
       .name = "expired",
       .talk = Always(Answer(200)),
       .says = "expired",
       .firstDay = -9,
       .lastDay = -1},
      {.figure = what, .name = "not valid yet", .talk = Always(Answer(200)), .says = "not yet valid", .firstDay = 1},
      {.figure = what, .name = "untrusted", .talk = Always(Answer(200)), .says = "self-signed", .isTrusted = false},
  };
  for (const int status : {400, 429, 500, 503}) {
    cases.push_back({.figure = what,
                     .name = std::to_string(status),
                     .talk = Always(Answer(status, "Retry-After: 3600\r\n")),
                     .says = statusError + std::to_string(status)});
  }
  return cases;
}

std::vector<Case> DecidedCases() {
  const std::string what = "service is odd: the status decides";
  const std::string length = "Content-Length: 4000000000\r\n\r\n";
  const std::string piece(16384, 'x');
  std::vector<Case> cases = {
      {.figure = what, .name = "gigabytes with 200", .talk = Endless("HTTP/1.1 200 OK\r\n" + length, piece)},
      {.figure = what,
       .name = "gigabytes with 500",
       .talk = Endless("HTTP/1.1 500 No\r\n" + length, piece),
       .says = std::string(statusError) + "500"},
      {.figure = what, .name = "body without an end", .talk = Endless("HTTP/1.1 200 OK\r\n\r\n", piece)},
      {.figure = what, .name = "answers after 2 s", .talk = [](Connection& connection) {
         if (connection.TakeRequest() && connection.Pause(2s)) connection.Send(Answer(200));
       }}};
  for (const int status : {301, 302, 307, 308}) {
    // Whoever followed would be refused.
    cases.push_back({.figure = what,
                     .name = std::to_string(status),
                     .talk = Always(Answer(status, "Location: https://127.0.0.1:9/elsewhere\r\n"))});
  }
  return cases;
}

std::string Octal(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    for (const unsigned shift : {6U, 3U, 0U})
      text += (shift == 6U ? "\\0" : "") + std::to_string((value >> shift) & 7U);
  }
  return text;
}

std::vector<Case> HelperCases() {
  const std::string what = "helper fails: event stays, log says why";
  const std::string reply = http::EncodeReply({0, false, "CRDaemon-http speaks version 2 of the protocol"});
  const std::string frame = std::string{static_cast<char>(reply.size()), '\0', '\0', '\0'} + reply;
  const auto make = [&](const std::string& name, const std::string& script, const std::string& says) {
    return Case{.figure = what, .name = name, .talk = Always(Answer(200)), .says = says, .helper = script};
  };
  return {make("missing", "missing", "could not be started: No such file"),
          make("not to be executed", "refused", "could not be started: Permission denied"),
          make("of another version", "printf '%b' '" + Octal(frame) + "'; exit 3", "speaks version 2"),
          make("ends at once", "exit 7", "ended with status 7"),
          make("dies on the body", "head -c 400 > /dev/null; kill -SEGV $$", "ended by signal 11"),
          make("short garbage", "printf '\\004\\000\\000\\000oops'; sleep 9", "broke the protocol: Bad message"),
          make("long garbage", "echo What do you want of me?; sleep 9", "broke the protocol: Message too long"),
          make("floods", "exec yes no", "broke the protocol: Message too long")};
}

// Really as long as they take. The limits are those of the manual page.
std::vector<Case> LongCases() {
  const std::string what = "silence: event stays, log says why";
  const auto silent = [](Connection& connection) {
    if (connection.TakeRequest()) static_cast<void>(connection.Pause(1h));
  };
  const auto slow = [](Connection& connection) {
    while (connection.TakeRequest() && connection.Pause(4s) && connection.Send(Answer(200))) {
    }
  };
  return {{.figure = what,
           .name = "no handshake",

           .says = "timeout",
           .exitLimit = 60s,
           .greeting = Greeting::silence},
          {.figure = what, .name = "no answer", .talk = silent, .says = "too slow", .exitLimit = 61s},
          {.figure = what,
           .name = "dripping header",
           .talk = Endless("HTTP/1.1 200 OK\r\nX: ", "x", 500ms),
           .says = "too slow",
           .exitLimit = 61s},
          {.figure = what,
           .name = "dripping body",
           .talk = Endless("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n", "x", 500ms),
           .says = "timed out after 120",
           .exitLimit = 120s},
          {.figure = what,
           .name = "stopped helper",
           .talk = silent,
           .says = "did not answer in time",
           .exitLimit = 130s,
           .helper = "kill -STOP $$; sleep 9"},
          {.figure = "4 s an answer, 100 events: the exit waits no longer than it may",
           .name = "slow",
           .talk = slow,
           .says = {},
           .exitLimit = 135s,
           .events = 100}};
}

// A number that nobody listens at for as long as this lives.
class ClosedPort {
 public:
  ClosedPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* anyAddress = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket_, anyAddress, size) != 0 || getsockname(socket_, anyAddress, &size) != 0) std::abort();
    port_ = ntohs(address.sin_port);
  }
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;
  ~ClosedPort() { close(socket_); }

  [[nodiscard]] std::string Url() const { return "https://127.0.0.1:" + std::to_string(port_) + "/ingest"; }

 private:
  int socket_;
  int port_;
};

// One case under way.
class Trial {
 public:
  Trial(Sandbox& sandbox, Case tried, int number)
      : case_(std::move(tried)),
        home_(sandbox, std::to_string(number)),
        certificate_(Certificate::Make(case_.altName, case_.firstDay, case_.lastDay)) {
    const std::string name = std::to_string(number);
    const fs::path trusted = sandbox.Folder() / (name + ".pem");
    sandbox.Put(trusted, (case_.isTrusted ? certificate_ : Certificate::Make(case_.altName, -1, 2)).Pem());
    for (int event = 0; event < case_.events; ++event) home_.QueueEvent(std::to_string(event));
    if (case_.name != "refuses") service_.emplace(certificate_, case_.talk, case_.greeting);
    demo::HostOptions options;
    if (!case_.helper.empty()) options.elements[0] = CopyWithHelper(sandbox, name);
    run_.emplace(home_.Start(
        {{"CRDAEMON_INGEST_URL", service_ ? service_->Url() : closed_.Url()}, {"SSL_CERT_FILE", trusted}}, options));
  }

  // Does what is due, without waiting; false once there is nothing left to do.
  bool Step() {
    if (end_) return false;
    const bool isUnderWay = run_->Logged(case_.exitLimit > 0s ? "process report" : "processed report");
    if (!exit_ && (isUnderWay || steady_clock::now() > start_ + demo::patience)) {
      run_->host.Say("exit 0");
      exit_ = steady_clock::now();
    }
    if (exit_ && run_->daemon.Status()) end_ = steady_clock::now();
    if (exit_ && steady_clock::now() > *exit_ + case_.exitLimit + 2 * slack) end_ = steady_clock::now();
    return !end_;
  }

  void Judge(Figures& figures) {
    const bool isDelivered = home_.Queued().empty();
    const std::string why = reliability::LoggedAfter(*run_, transportError) + "|" +
                            (run_->Logged(statusError) ? statusError : "") +
                            reliability::LoggedAfter(*run_, statusError);
    if (case_.events == 1) {
      const bool saysWhy = case_.says.empty() ? why == "|" : why.find(case_.says) != std::string::npos;
      figures.Count(case_.figure, case_.name + (isDelivered ? ", delivered, " : ", queued, ") + why,
                    isDelivered == case_.says.empty() && saysWhy);
    }
    const auto held = std::chrono::duration_cast<seconds>(*end_ - *exit_);
    figures.Count(case_.events == 1 ? "exit in time whatever the service does" : case_.figure,
                  case_.name + ", " + std::to_string(held.count()) + " s",
                  run_->daemon.Status() == 0 && held <= case_.exitLimit + slack);
  }

 private:
  // The daemon beside another helper.
  std::string CopyWithHelper(Sandbox& sandbox, const std::string& name) const {
    const fs::path daemon = sandbox.CopyOf("CRDaemon", fs::path("helpers") / name / "CRDaemon");
    const fs::path helper = daemon.parent_path() / "CRDaemon-http";
    if (case_.helper == "missing") return daemon;
    sandbox.Put(helper, "#!/bin/sh\n" + case_.helper + "\n");
    if (case_.helper != "refused") fs::permissions(helper, fs::perms::owner_exec, fs::perm_options::add);
    return daemon;
  }

  Case case_;
  Home home_;
  Certificate certificate_;
  ClosedPort closed_;
  std::optional<RawService> service_;
  std::optional<HostRun> run_;
  steady_clock::time_point start_ = steady_clock::now();
  std::optional<steady_clock::time_point> exit_;
  std::optional<steady_clock::time_point> end_;
};

// Side by side, a few at a time where they need the processor.
void Try(Sandbox& sandbox, const std::vector<Case>& cases, std::size_t atOnce, Figures& figures) {
  static int trials = 0;
  for (std::size_t next = 0; next < cases.size(); next += atOnce) {
    std::vector<std::unique_ptr<Trial>> running;
    for (std::size_t i = next; i < std::min(next + atOnce, cases.size()); ++i) {
      running.push_back(std::make_unique<Trial>(sandbox, cases[i], trials++));
    }
    for (bool isOver = false; !isOver; std::this_thread::sleep_for(20ms)) {
      isOver = true;
      for (const auto& trial : running) isOver = !trial->Step() && isOver;
    }
    for (const auto& trial : running) trial->Judge(figures);
  }
}

void TryHandshakes(Sandbox& sandbox, Figures& figures) {
  constexpr int events = 50;
  const Home home(sandbox, "handshakes");
  for (int event = 0; event < events; ++event) home.QueueEvent(std::to_string(event));
  const Certificate certificate = Certificate::Make("IP:127.0.0.1", -1, 2);
  sandbox.Put(sandbox.Folder() / "handshakes.pem", certificate.Pem());
  RawService service(certificate, Always(Answer(200)));
  const HostRun run =
      home.Start({{"CRDAEMON_INGEST_URL", service.Url()}, {"SSL_CERT_FILE", sandbox.Folder() / "handshakes.pem"}});
  const bool areDelivered = demo::Eventually([&] { return home.Queued().empty(); });
  figures.Count("one handshake for 50 events", std::to_string(service.Handshakes()) + " handshakes",
                areDelivered && service.Handshakes() == 1);
}

}  // namespace

int main(int count, char* arguments[]) try {
  std::signal(SIGPIPE, SIG_IGN);
  Sandbox sandbox;
  Figures figures;
  constexpr std::size_t few = 8;
  for (const auto& cases : {StayingCases(), DecidedCases(), HelperCases()}) Try(sandbox, cases, few, figures);
  TryHandshakes(sandbox, figures);
  const auto longCases = LongCases();
  if (reliability::IsShort(count, arguments)) {
    for (const Case& left : longCases) std::cout << "left out of the short form: " << left.name << '\n';
  } else {
    Try(sandbox, longCases, longCases.size(), figures);
  }
  return figures.Print();
} catch (const std::exception& error) {
  std::cerr << "reliability_service: " << error.what() << '\n';
  return 2;
}
