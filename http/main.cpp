// CRDaemon-http posts what CRDaemon hands it over the socket that is its standard input and output, and ends with it.
// Kept apart so that the waiting daemon never maps libcurl. Its one argument, given by root's daemon, is the user to
// become.
#include <curl/curl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <initializer_list>

#include "http/CurlPoster.h"
#include "platform/posix/HttpFrames.h"
#include "platform/posix/Sockets.h"

namespace {

enum ExitStatus { ended = 0, brokenProtocol = 1, notThatUser = 2, otherVersion = 3 };

// The systems do not agree on the type of a group there.
template <typename Group>
bool TakeGroups(int (*take)(const char*, Group), const passwd& entry) {
  return take(entry.pw_name, static_cast<Group>(entry.pw_gid)) == 0;
}

// For good, since root sets all its ids at once, and before a byte from outside is read.
bool BecomeUser(const char* name) {
  const passwd* entry = getpwnam(name);
  return entry != nullptr && TakeGroups(initgroups, *entry) && setgid(entry->pw_gid) == 0 && setuid(entry->pw_uid) == 0;
}

bool Send(const http::Reply& reply) { return !http::SendFrame(STDOUT_FILENO, http::EncodeReply(reply), {}); }

// Of an installation that was replaced under a living daemon.
ExitStatus RefuseVersion(std::uint32_t version) {
  const bool told = Send({0, false,
                          "CRDaemon-http speaks version " + std::to_string(http::protocolVersion) +
                              " of the protocol, CRDaemon version " + std::to_string(version)});
  return told ? otherVersion : brokenProtocol;
}

ExitStatus Serve() {
  http::Receiver receiver(STDIN_FILENO);
  const auto version = receiver.Number({});
  if (!version) return version.Error() == std::errc::broken_pipe ? ended : brokenProtocol;
  if (*version != http::protocolVersion) return RefuseVersion(*version);
  const auto frame = receiver.Frame(http::smallFrameLimitBytes, {});
  const auto opening = frame ? http::DecodeOpening(*frame) : std::nullopt;
  if (!opening) return brokenProtocol;

  CurlPoster poster(*opening, STDIN_FILENO);
  while (true) {
    const auto body = receiver.Frame(http::bodyLimitBytes, {});
    if (!body) return body.Error() == std::errc::broken_pipe ? ended : brokenProtocol;
    if (!Send(poster.Post(*body))) return ended;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (getuid() != geteuid() || getgid() != getegid()) {
    std::fputs("CRDaemon-http: must not run with the rights of another user or group (set-user-id)\n", stderr);
    return brokenProtocol;
  }
  // The daemon decides when it ends, also at the end of a session; a limit of a file's size is an error of a write.
  for (const int passedBy : {SIGTERM, SIGXFSZ}) std::signal(passedBy, SIG_IGN);
  if (!platform::RenounceNewPrivileges()) return notThatUser;
  if (argc > 1 && !BecomeUser(argv[1])) return notThatUser;
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const ExitStatus status = Serve();
  curl_global_cleanup();
  if (status == brokenProtocol) std::fputs("CRDaemon-http: to be started by CRDaemon only\n", stderr);
  return status;
}
