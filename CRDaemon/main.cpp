#include <cstdint>
#include <cstdio>
#include <string>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Processes.h"
#include "platform/Users.h"
#include "support/Log.h"

namespace {

// Files, sockets and the helper's streams of a run that posts, with room to spare.
constexpr std::uint64_t filesNeeded = 64;

// Also for the eyes of whoever started this process, since there may be no log.
void TellError(const std::string& text) { std::fputs(("CRDaemon: " + text + "\n").c_str(), stderr); }

}  // namespace

int main(int argc, char** argv) {
  if (platform::HasBorrowedRights()) {
    TellError("must not run with the rights of another user or group (set-user-id)");
    return 1;
  }
  ProcessWide() = InitialProcessValues();
  ProcessWide().arguments.assign(argv, argv + argc);
  platform::SettleProcess();
  if (const auto limit = platform::RaiseOpenFileLimit(filesNeeded); limit < filesNeeded) {
    const std::string text = "only " + std::to_string(limit) + " files may be open, fewer than the " +
                             std::to_string(filesNeeded) + " that reporting a crash may take";
    TellError(text);
    LogError(text);
  }
  MyDaemon daemon;
  daemon.initialize();
  return 0;
}
