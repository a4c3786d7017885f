// What a watcher costs at the very least: a C++ program, dynamically linked, with the types that anything is made of,
// that looks for a process once a second.
//   floor_waiter PID
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

int main(int argc, char** argv) {
  const std::map<std::string, std::string> arguments = {{"host", argc > 1 ? argv[1] : "1"}};
  const std::filesystem::path program = std::filesystem::path(argv[0]).filename();
  const pid_t host = std::stoi(arguments.at("host"));
  while (getpgid(host) >= 0) std::this_thread::sleep_for(std::chrono::seconds(1));
  return program.empty() ? 1 : 0;
}
