#include <stdexcept>
#include <string>

#include "CRDaemon/MyDaemon.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Text.h"

void MyDaemon::SetSkylanceSessionId() {
  const std::string prefix = names::sessionPrefix;
  if (skylanceSessionID && skylanceSessionID->size() > prefix.size()) return;
  skylanceSessionID = prefix;
  LogInfo("Setting Skylance Session ID: " + *skylanceSessionID);
}

// A host that was killed can leave an empty session file: no crash is lost for that.
std::string MyDaemon::SessionGuid() const {
  try {
    return text::From(skylanceSessionID.value_or(""), std::string_view(names::sessionPrefix).size());
  } catch (const std::out_of_range&) {
    LogError("session record is shorter than its prefix");
    return "";
  }
}

void MyDaemon::MarkSessionAsCrash() {}
