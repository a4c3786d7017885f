#include "platform/Preferences.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "platform/Files.h"
#include "platform/Users.h"
#include "platform/macos/Objects.h"

namespace platform {
namespace {

bool Set(NSString* domain, NSDictionary* values) {
  NSUserDefaults* const defaults = [NSUserDefaults standardUserDefaults];
  @try {
    [defaults setPersistentDomain:values forName:domain];
    return [defaults synchronize] == YES;
  } @catch (NSException*) {
    return false;
  }
}

}  // namespace

std::optional<Value> PreferenceValue(const std::string& domain, const std::string& key) {
  const Pool pool;
  const CFStringRef application = Bridged(ToText(domain));
  CFPreferencesSynchronize(application, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
  return FromObject(Owned<NSObject>(
      CFPreferencesCopyValue(Bridged(ToText(key)), application, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost)));
}

std::optional<Dictionary> PersistentDomain(const std::string& domain) {
  const Pool pool;
  const auto values = FromObject([[NSUserDefaults standardUserDefaults] persistentDomainForName:ToText(domain)]);
  const auto* dictionary = values ? values->As<Dictionary>() : nullptr;
  return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

bool ChangePersistentDomain(const std::string& domain, const std::function<bool(Dictionary&)>& change) {
  const Pool pool;
  const auto library = LibraryFolder();
  const FolderLock lock(library ? *library + "/Preferences" : std::string());
  [[NSUserDefaults standardUserDefaults] synchronize];
  auto values = PersistentDomain(domain).value_or(Dictionary());
  if (!change(values)) return true;
  const id dictionary = ToObject(Value(Value::State(std::move(values))));
  return dictionary != nil && Set(ToText(domain), dictionary);
}

}  // namespace platform
