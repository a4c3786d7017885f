#pragma once

#include <memory>
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

// Turns a report into its event while the report is being read. What is missing or malformed stays unset; broken JSON,
// values of the wrong kind and values too large for an event are logged. A text of more than 64 KiB is cut. A report
// that is not UTF-8 counts as empty.
class Converter {
 public:
  // `type` is the report's decimal kind.
  Converter(std::string_view type, const Sender& sender);
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter();

  // The report's bytes, in pieces of any size.
  void Feed(std::string_view piece);
  // Once. Throws std::out_of_range for a JSON report of a single line.
  [[nodiscard]] platform::Dictionary Finish();

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

// A report in one piece; throws as Finish does.
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
