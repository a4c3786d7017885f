#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Processes.h"

int main(int argc, char** argv) {
  ProcessWide() = InitialProcessValues();
  ProcessWide().arguments.assign(argv, argv + argc);
  platform::SettleProcess();
  MyDaemon daemon;
  daemon.initialize();
  return 0;
}
