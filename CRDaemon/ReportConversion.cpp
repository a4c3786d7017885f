#include "CRDaemon/ReportConversion.h"

#include <chrono>
#include <initializer_list>
#include <stdexcept>
#include <unordered_map>

#include "support/Dates.h"
#include "support/Guid.h"
#include "support/Json.h"
#include "support/Log.h"
#include "support/Text.h"

namespace conversion {
namespace {

using platform::Dictionary;
using platform::Value;
using Handler = std::optional<std::string> (*)(const std::string&, Dictionary&);

struct TextRow {
  const char* eventKey;
  Handler handler;
};

std::string EventValueOfType(std::string_view type) {
  if (type == "0") return "abnormal:crash";
  if (type == "1") return "abnormal:signal";
  if (type == "2") return "abnormal:hang";
  return "abnormal:others";
}

void translateKeyValueFromTextReportLine(std::string_view line, Dictionary& event) {
  static const std::unordered_map<std::string_view, TextRow> TEXT_REPORT_TRANSLATION = {
      {"Signal Number", {"event.error_code", nullptr}},
      {"Exception Type", {"event.error_type", nullptr}},
      {"Publisher Process Name", {"event.error_desc", handlePublisher}},
      {"User GUID", {"event.user_guid", nullptr}},
      {"Crash GUID", {"event.guid", nullptr}},
      {"SkylanceSessionId", {"event.session_guid", nullptr}},
      {"Malvex Crash Reporter Version", {"env.fw.version", nullptr}},
      {"Date/Time", {"event.dts_end", handleTimeStamp}},
      {"Launch Time", {"event.dts_start", handleTimeStamp}},
      {"OS Version", {"source.os_version", handleOSVersion}},
  };

  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const auto row = TEXT_REPORT_TRANSLATION.find(line.substr(0, colon));
  if (row == TEXT_REPORT_TRANSLATION.end()) return;
  const std::string value = trimWhiteSpaces(line.substr(colon + 1));
  const auto [eventKey, handler] = row->second;
  setObject(event, eventKey, handler == nullptr ? value : handler(value, event));
}

void AddTextReport(std::string_view report, Dictionary& event) {
  for (const std::string_view line : text::Split(report, '\n')) translateKeyValueFromTextReportLine(line, event);
}

Dictionary ParseDocument(std::string_view text, std::initializer_list<std::string_view> members, const char* which) {
  auto parsed = json::Parse(text, members);
  if (const auto* error = std::get_if<json::Error>(&parsed)) {
    LogError(std::string("failed to parse ") + which + " json with error: " + error->description);
    return {};
  }
  return std::move(std::get<Dictionary>(parsed));
}

// A property list holds no null; a member that is one counts as missing, at any depth.
std::optional<Value> WithoutNulls(const Value& value) {
  if (value.IsNull()) return std::nullopt;
  if (const auto* array = value.As<platform::Array>()) {
    platform::Array kept;
    for (const Value& element : *array) {
      if (auto whole = WithoutNulls(element)) kept.push_back(std::move(*whole));
    }
    return Value(std::move(kept));
  }
  if (const auto* dictionary = value.As<Dictionary>()) {
    Dictionary kept;
    for (const auto& [key, member] : *dictionary) setObject(kept, key, WithoutNulls(member));
    return Value(std::move(kept));
  }
  return value;
}

void SetMember(const Dictionary& document, const char* member, Dictionary& event, const char* eventKey) {
  if (const Value* value = document.Find(member)) setObject(event, eventKey, WithoutNulls(*value));
}

void SetHandled(const Dictionary& document, const char* member, Dictionary& event, const char* eventKey,
                Handler handler) {
  const Value* value = document.Find(member);
  if (value == nullptr || value->IsNull()) return;
  if (const auto* text = value->As<std::string>()) {
    setObject(event, eventKey, handler(*text, event));
  } else {
    LogError(std::string("report member is no text: ") + member);
  }
}

const Dictionary& ExceptionOf(const Dictionary& body) {
  static const Dictionary none;
  const Value* exception = body.Find("exception");
  if (exception == nullptr || exception->IsNull()) return none;
  if (const auto* members = exception->As<Dictionary>()) return *members;
  LogError("report member is no object: exception");
  return none;
}

void AddJsonReport(std::string_view report, Dictionary& event) {
  const std::size_t newline = report.find('\n');
  if (newline == std::string_view::npos) throw std::out_of_range("JSON report of a single line");
  const Dictionary header = ParseDocument(report.substr(0, newline), {"os_version"}, "first");
  const Dictionary body =
      ParseDocument(report.substr(newline), {"modelCode", "captureTime", "procLaunch", "exception"}, "second");

  const Dictionary& exception = ExceptionOf(body);
  SetMember(exception, "type", event, "event.error_type");
  SetMember(exception, "signal", event, "event.error_code");
  SetMember(exception, "subtype", event, "event.error_desc");
  SetMember(body, "modelCode", event, "source.device");
  SetHandled(header, "os_version", event, "source.os_version", handleOSVersion);
  SetHandled(body, "captureTime", event, "event.dts_end", handleTimeStamp);
  SetHandled(body, "procLaunch", event, "event.dts_start", handleTimeStamp);
}

std::optional<platform::Time> TimeOf(const Dictionary& event, const char* key) {
  const Value* value = event.Find(key);
  const auto* text = value == nullptr ? nullptr : value->As<std::string>();
  return text == nullptr ? std::nullopt : dates::ParseEventTime(*text);
}

// The formatted times are whole seconds, and so is their distance.
void AddDuration(Dictionary& event) {
  const auto start = TimeOf(event, "event.dts_start");
  const auto end = TimeOf(event, "event.dts_end");
  if (!start || !end) return;
  event.Set("event.count", std::to_string(std::chrono::duration<double>(*end - *start).count()));
}

}  // namespace

std::string getNewGuid() { return NewGuid(); }

std::string trimWhiteSpaces(std::string_view text) { return text::Trim(text); }

void setObject(Dictionary& event, const std::string& key, std::optional<Value> value) {
  if (value && !value->IsNull()) event.Set(key, std::move(*value));
}

// The first digits, dot, digits and so on. By hand, since the value may be as long as a report.
std::optional<std::string> handleOSVersion(const std::string& value, Dictionary&) {
  const auto digitsEnd = [&value](std::size_t from) {
    const std::size_t end = value.find_first_not_of("0123456789", from);
    return end == std::string::npos ? value.size() : end;
  };
  for (std::size_t begin = 0; (begin = value.find_first_of("0123456789", begin)) != std::string::npos;) {
    std::size_t end = digitsEnd(begin);
    const std::size_t firstEnd = end;
    while (end < value.size() && value[end] == '.' && digitsEnd(end + 1) > end + 1) end = digitsEnd(end + 1);
    if (end > firstEnd) return value.substr(begin, end - begin);
    begin = end;
  }
  return std::nullopt;
}

std::optional<std::string> handleTimeStamp(const std::string& value, Dictionary&) {
  const auto time = dates::ParseReportTime(value);
  return time ? std::optional(dates::FormatEventTime(*time)) : std::nullopt;
}

std::optional<std::string> handlePublisher(const std::string& value, Dictionary& event) {
  event.Set("event.value", "abnormal:signal");
  return "Received signal from " + value;
}

Dictionary EventFromReport(std::string_view report, std::string_view type, const Sender& sender) {
  Dictionary event = {
      {"source.name", sender.appName},
      {"source.version", sender.appVersion},
      {"env.fw.version", sender.crashReporterVersion},
      {"event.session_guid", sender.sessionGuid},
      {"event.user_guid", sender.userGuid},
      {"event.guid", getNewGuid()},
      {"event.value", EventValueOfType(type)},
  };
  if (report.substr(0, 1) == "{") {
    AddJsonReport(report, event);
  } else {
    AddTextReport(report, event);
  }
  AddDuration(event);
  return event;
}

}  // namespace conversion
