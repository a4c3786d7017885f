#include "tests/contract/Scene.h"
#include "tests/simulated/SimulatedMachine.h"

namespace scene {
namespace {
std::optional<SimulatedMachine> machine;
}

void Begin() { machine.emplace().disk.Make(Disk::Kind::folder, simulatedHome); }
void End() { machine.reset(); }
std::string Home() { return simulatedHome; }
void MakeLink(const std::string& /*target*/, const std::string& path) { machine->disk.Make(Disk::Kind::link, path); }
void MakeFifo(const std::string& path) { machine->disk.Make(Disk::Kind::fifo, path); }
unsigned ModeOf(const std::string& path) { return machine->disk.Find(path)->mode; }
std::string Program() { return "/Applications/Reporter"; }
std::int32_t HostId() { return simulatedHostId; }
void KillHost(std::int32_t /*host*/, int signal) { machine->At(1s).HostDies(signal); }

}  // namespace scene
