#include <string>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/MyDaemon.h"
#include "platform/Preferences.h"
#include "platform/Users.h"
#include "support/FixedNames.h"
#include "support/Guid.h"
#include "support/Log.h"

std::string MyDaemon::GetNewGuid() { return NewGuid(); }

// Looked up and made under one lock: two daemons that start together must not make two.
std::string MyDaemon::GetUserGuid() {
  const std::string key = names::guidKeyPrefix + platform::UserName();
  std::string guid;
  const bool isStored = platform::ChangePersistentDomain(names::preferencesDomain, [&](platform::Dictionary& values) {
    const platform::Value* stored = values.Find(key);
    if (const auto* found = stored == nullptr ? nullptr : stored->As<std::string>()) {
      guid = *found;
      return false;
    }
    LogInfo("Creating new User GUID");
    guid = GetNewGuid();
    values.Set(key, guid);
    return true;
  });
  if (!isStored) LogError("User GUID could not be stored");
  LogInfo("Look up string: " + key + " Stored Guid: " + guid);
  return guid;
}

std::string MyDaemon::StoredCrashKey() const {
  const Text& version = malvexProductVersion ? malvexProductVersion : appVersion;
  return preferences::StoredCrashKey(appName.value_or(""), version.value_or(""), malvexProductBuild);
}

// Where the file has nothing to say, because it could not be written or another process rewrote it meanwhile, what this
// run stored last holds: a missing stored crash would make every report an old one.
MyDaemon::Text MyDaemon::getStoredCrash() const {
  const auto values = preferences::Read();
  const platform::Value* stored = values ? values->Find(StoredCrashKey()) : nullptr;
  const auto* report = stored == nullptr ? nullptr : stored->As<std::string>();
  return report == nullptr ? ownStoredCrash : *report;
}

void MyDaemon::setStoredCrash(const Text& report) {
  ownStoredCrash = report;
  preferences::Store(StoredCrashKey(), report);
}
