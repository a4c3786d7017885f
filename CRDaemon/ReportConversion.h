#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

// A crash, signal or hang report as one event: a flat dictionary of dotted keys.
namespace conversion {

// What the event says of its sender, whatever the report holds.
struct Sender {
  std::string appName;
  std::string appVersion;
  std::string crashReporterVersion;
  std::string sessionGuid;
  std::string userGuid;
};

// `report` is the file's text, `type` its decimal kind. What is missing or malformed stays unset; broken JSON and
// values of the wrong kind are logged. Throws std::out_of_range for a JSON report of a single line.
[[nodiscard]] platform::Dictionary EventFromReport(std::string_view report, std::string_view type,
                                                   const Sender& sender);

// 36 characters.
[[nodiscard]] std::string getNewGuid();
[[nodiscard]] std::string trimWhiteSpaces(std::string_view text);

// Stores the value unless it is unset or null.
void setObject(platform::Dictionary& event, const std::string& key, std::optional<platform::Value> value);

// The value handlers: the text to store, or none. The last one also turns the event into one of a signal.
[[nodiscard]] std::optional<std::string> handleOSVersion(const std::string& value, platform::Dictionary& event);
[[nodiscard]] std::optional<std::string> handleTimeStamp(const std::string& value, platform::Dictionary& event);
[[nodiscard]] std::optional<std::string> handlePublisher(const std::string& value, platform::Dictionary& event);

}  // namespace conversion
