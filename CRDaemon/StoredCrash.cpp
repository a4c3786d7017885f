#include <string>

#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/MyDaemon.h"
#include "platform/Preferences.h"
#include "platform/Users.h"
#include "support/FixedNames.h"
#include "support/Guid.h"
#include "support/Log.h"

std::string MyDaemon::GetNewGuid() { return NewGuid(); }

std::string MyDaemon::GetUserGuid() {
  platform::Dictionary values = platform::PersistentDomain(names::preferencesDomain).value_or(platform::Dictionary());
  const std::string key = names::guidKeyPrefix + platform::UserName();
  const auto announced = [&key](const std::string& guid) {
    LogInfo("Look up string: " + key + " Stored Guid: " + guid);
    return guid;
  };
  const platform::Value* stored = values.Find(key);
  if (const auto* guid = stored == nullptr ? nullptr : stored->As<std::string>()) return announced(*guid);

  LogInfo("Creating new User GUID");
  const std::string guid = GetNewGuid();
  values.Set(key, guid);
  if (!platform::SetPersistentDomain(names::preferencesDomain, values)) LogError("User GUID could not be stored");
  return announced(guid);
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
