#pragma once

#include <map>
#include <string>
#include <system_error>

// The sending side of the distributed notifications that RunLoop.h delivers. Both take five seconds at most:
// EDESTADDRREQ when nothing says where the notifications go, ECONNREFUSED when nobody can be reached there, ETIMEDOUT
// when there is no answer.
namespace platform {

// Whether a notification could be posted now.
[[nodiscard]] std::error_code ReachNotifications();

// On success it is on its way to all who observe that name.
[[nodiscard]] std::error_code PostNotification(const std::string& name,
                                               const std::map<std::string, std::string>& userInfo);

}  // namespace platform
