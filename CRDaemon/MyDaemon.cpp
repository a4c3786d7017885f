#include "CRDaemon/MyDaemon.h"

#include "CRDaemon/ProcessValues.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/System.h"
#include "platform/Workers.h"
#include "support/Log.h"
#include "support/Text.h"

MyDaemon::~MyDaemon() { platform::StopDelivery(); }

void MyDaemon::initialize() {
  endTask = false;
  terminateNotified = false;
  endRunLoop = false;
  initProcessId();
  if (processId) platform::WatchHost(HostId());

  platform::WorkerGroup asyncGroup;
  asyncGroup.Async([this] {
    waitForCrash();
    platform::WorkerReturned();
  });
  listenForTerminateNotifications();
  asyncGroup.Wait();
}

void MyDaemon::initProcessId() {
  LogInfo("Inside initiProcessId");
  const auto& arguments = ProcessWide().arguments;
  if (arguments.size() <= 5) {
    LogError("Insufficient number of arguments passed to CRDaemon");
    return;
  }
  processId = arguments[1];
  LogInfo("Parent App Process ID: " + *processId);
}

void MyDaemon::initParameters() {}

// A text that is no process id counts as 0, the id of a host that is gone.
std::int32_t MyDaemon::HostId() const {
  return processId && text::IsDecimal(*processId) ? text::IntegerValue(*processId) : 0;
}

std::int16_t MyDaemon::GetOSVersionMajor() const {
  return BCDToDecimal(static_cast<std::int32_t>((platform::SystemVersionBcd() >> 8U) & 0xFFU));
}

std::int16_t MyDaemon::GetOSVersionMinor() const {
  return BCDToDecimal(static_cast<std::int32_t>((platform::SystemVersionBcd() >> 4U) & 0xFU));
}

std::int16_t MyDaemon::BCDToDecimal(std::int32_t value) {
  return static_cast<std::int16_t>((value / 16) * 10 + value % 16);
}
