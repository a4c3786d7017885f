#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

// What a contract test needs done around the machine under test, and what no header under platform/ can do. Written
// once for each machine.
namespace scene {

void Begin();
void End();

// The home folder of this process's user, empty at first.
[[nodiscard]] std::string Home();
void MakeLink(const std::string& target, const std::string& path);
void MakeFifo(const std::string& path);
[[nodiscard]] unsigned ModeOf(const std::string& path);
// A program that can be started.
[[nodiscard]] std::string Program();
// A living process, and its death by a signal.
[[nodiscard]] std::int32_t HostId();
void KillHost(std::int32_t host, int signal);

}  // namespace scene

class Contract : public testing::Test {
 protected:
  void SetUp() override { scene::Begin(); }
  void TearDown() override { scene::End(); }
  [[nodiscard]] static std::string Path(const std::string& name) { return scene::Home() + "/" + name; }
};
