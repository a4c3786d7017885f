#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "demo/Sandbox.h"

namespace reliability {

// Folders for one daemon that runs as root, and for the user at the console in whose Library it works.
struct RootWorld {
  std::filesystem::path folder;   // root's alone
  std::filesystem::path home;     // of the console user, who is the ordinary account
  std::filesystem::path own;      // root's own home: queue and log
  std::filesystem::path outside;  // root's, and to be left alone
};

[[nodiscard]] RootWorld MakeRootWorld(const demo::Sandbox& sandbox, const std::filesystem::path& folder);

// Starts the sandbox's daemon as root with these arguments, in a mount namespace of its own: there the ordinary account
// sits at seat0 and has this world's home, and nothing but the world can be written to. What login managers and the
// account file of the machine say stays as it is. Ends with this program.
[[nodiscard]] pid_t StartRootDaemon(const demo::Sandbox& sandbox, const RootWorld& world,
                                    std::vector<std::string> arguments);

// Why this program cannot do that; empty when it can.
[[nodiscard]] std::string WhyNoRootDaemon();

// A tree as its owner would miss it: of each path the kind, owner, mode, size, date and content; and whether somebody
// read it since.
class Witness {
 public:
  explicit Witness(std::filesystem::path root);

  // What changed, was read, came or went; empty when nothing did. Reading shows where the file system keeps dates of
  // access at all.
  [[nodiscard]] std::string Complaint() const;

 private:
  [[nodiscard]] std::map<std::string, std::string> Look() const;

  std::filesystem::path root_;
  std::map<std::string, std::string> before_;
};

}  // namespace reliability
