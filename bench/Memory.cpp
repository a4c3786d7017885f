// The private dirty memory of the daemon while it waits for its host, against that of a bare program that does the
// same.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "demo/Sandbox.h"

namespace {

constexpr std::chrono::seconds settling{5};

// What only this process holds. The kernel's "Private_Dirty" is this and, for a while, those pages of program files
// just copied that are not on the disk yet.
int PrivateDirtyKilobytes(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("Anonymous:")) return std::stoi(line.substr(line.find_first_of("123456789")));
  }
  throw std::runtime_error("no memory figures of process " + std::to_string(process));
}

}  // namespace

int main() try {
  demo::Sandbox sandbox;
  // Without its log, as it usually runs; and then the preferences are what shows that it is watching.
  std::filesystem::remove(sandbox.Library() / "Logs/Malvex/CrDebugLogs/generatecrlogornot.txt");
  const demo::HostRun run = sandbox.StartHost({});
  if (!demo::Eventually([&] { return exists(sandbox.Preferences()); })) throw std::runtime_error("no daemon");

  std::filesystem::copy_file(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "bench_bare",
                             sandbox.Folder() / "bench_bare");
  const demo::Program bare =
      sandbox.StartProgram({sandbox.Folder() / "bench_bare", std::to_string(run.host.Id())}, "bare.out");
  std::this_thread::sleep_for(settling);

  const int daemonKilobytes = PrivateDirtyKilobytes(run.daemon.Id());
  const int bareKilobytes = PrivateDirtyKilobytes(bare.Id());
  std::cout << "private dirty memory: daemon " << daemonKilobytes << " kB, bare program " << bareKilobytes
            << " kB, ratio " << static_cast<double>(daemonKilobytes) / bareKilobytes << '\n';
} catch (const std::exception& error) {
  std::cerr << "bench_memory: " << error.what() << '\n';
  return 2;
}
