// A host in C++. It crashes when its input says so, and else ends normally at the end of its input.
#include <crhost.hpp>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

void Check(const crhost::Result& result) {
  if (!result) throw std::runtime_error(result.Text());
}

}  // namespace

int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape): the way this host crashes
  if (argc != 3) return 2;
  Check(crhost::Start(crhost::Options()
                          .Set(CRHOST_DAEMON_PATH, argv[1])
                          .Set(CRHOST_REPORTER_PATH, argv[2])
                          .Set(CRHOST_APP_NAME, "Photo")
                          .Set(CRHOST_APP_VERSION, "4.2")));
  Check(crhost::ReportSignals(CRHOST_FAULTS | CRHOST_HANDLED_SIGNALS));
  std::cout << "daemon " << crhost_daemon_id() << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "crash") throw std::runtime_error("on purpose");  // nobody catches it
  }
  Check(crhost::AnnounceNormalEnd());
}
