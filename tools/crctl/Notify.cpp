#include "platform/Notify.h"

#include <map>

#include "support/FixedNames.h"
#include "support/Text.h"
#include "tools/crctl/Verbs.h"

namespace crctl {

Answer Notify(const std::string& name, std::int32_t host, const std::vector<std::string>& members) {
  std::map<std::string, std::string> userInfo = {{names::processIdKey, std::to_string(host)}};
  for (const std::string& member : members) {
    const std::size_t equals = member.find('=');
    if (equals == std::string::npos || equals == 0) return Failed("not KEY=VALUE: " + member);
    userInfo[member.substr(0, equals)] = member.substr(equals + 1);
  }
  platform::Dictionary posted;
  for (const auto& [key, value] : userInfo) {
    if (!text::IsUtf8(value) || !text::IsUtf8(key)) return Failed("not UTF-8: " + key);
    posted.Set(key, value);
  }
  if (!text::IsUtf8(name)) return Failed("not UTF-8: " + name);
  if (const auto error = platform::PostNotification(name, userInfo)) {
    return Failed("cannot post on the session bus: " + error.message() + " (see: crctl doctor)");
  }
  return {.text = Line("posted " + name + " for process " + std::to_string(host)),
          .json = {{"name", name}, {"userInfo", platform::Value(std::move(posted))}},
          .error = {}};
}

}  // namespace crctl
