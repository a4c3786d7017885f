#include "CRDaemon/ReportConversion.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <variant>

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

// What one value may take up in the event's file, as XML: all of them together stay far below what the queue takes, so
// that no report costs us its event.
constexpr std::size_t valueBytes = std::size_t{64} << 10U;
constexpr std::size_t tagBytes = 64;  // around each value and key, amply
constexpr json::Limits memberLimits = {.values = valueBytes / tagBytes, .bytes = valueBytes + 4, .levels = 64};
constexpr std::size_t lineBytes = 2 * valueBytes;
constexpr auto uidKey = "CF$UID";

void LogTooLarge(std::string_view member) { LogError("report member is too large: " + std::string(member)); }

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

  constexpr std::size_t longestKey = 29;

  const std::size_t colon = line.substr(0, longestKey + 1).find(':');
  if (colon == std::string_view::npos) return;
  const auto row = TEXT_REPORT_TRANSLATION.find(line.substr(0, colon));
  if (row == TEXT_REPORT_TRANSLATION.end()) return;
  const std::string value = trimWhiteSpaces(line.substr(colon + 1));
  const auto [eventKey, handler] = row->second;
  // To format a time is to look at the file of the time zone: that is done once, for the last line that counts.
  if (handler == handleTimeStamp) {
    if (dates::ParseReportTime(value)) event.Set(eventKey, value);
    return;
  }
  setObject(event, eventKey, handler == nullptr ? value : handler(value, event));
}

// Whether a key of the table begins so. Of most lines of a report there is nothing else to be known.
bool MayBeginKey(char character) {
  switch (character) {
    case 'C':
    case 'D':
    case 'E':
    case 'L':
    case 'M':
    case 'O':
    case 'P':
    case 'S':
    case 'U':
      return true;
    default:
      return false;
  }
}

class TextReport {
 public:
  void Feed(std::string_view piece) {
    for (std::size_t end; (end = piece.find('\n')) != std::string_view::npos; piece.remove_prefix(end + 1)) {
      if (begun_.empty()) {
        TakeLine(piece.substr(0, end));
      } else {
        Begin(piece.substr(0, end));
        TakeLine(begun_);
        begun_.clear();
      }
    }
    Begin(piece);
  }

  void AddTo(Dictionary& event) {
    TakeLine(begun_);
    for (const char* key : {"event.dts_start", "event.dts_end"}) {
      const Value* time = fields_.Find(key);
      if (time != nullptr) setObject(fields_, key, handleTimeStamp(*time->As<std::string>(), event));
    }
    for (const auto& [key, value] : fields_) event.Set(key, value);
  }

 private:
  void TakeLine(std::string_view line) {
    if (!line.empty() && MayBeginKey(line.front())) translateKeyValueFromTextReportLine(line, fields_);
  }

  // A value is cut anyway, long before this.
  void Begin(std::string_view part) { begun_ += part.substr(0, lineBytes - std::min(begun_.size(), lineBytes)); }

  Dictionary fields_;
  std::string begun_;  // a line that the next piece goes on with
};

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
    // That would come back as something that no JSON holds.
    if (dictionary->Find(uidKey) != nullptr) return std::nullopt;
    Dictionary::Members kept;
    for (const auto& [key, member] : *dictionary) {
      if (auto whole = WithoutNulls(member)) kept.emplace_back(key, std::move(*whole));
    }
    return Value(Dictionary(std::move(kept)));
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

class JsonReport {
 public:
  void Feed(std::string_view piece) {
    if (!isBody_) {
      const std::size_t newline = piece.find('\n');
      header_.Write(piece.substr(0, newline));
      if (newline == std::string_view::npos) return;
      isBody_ = true;
      piece.remove_prefix(newline);
    }
    body_.Write(piece);
  }

  // Throws as EventFromReport does.
  void AddTo(Dictionary& event) {
    if (!isBody_) throw std::out_of_range("JSON report of a single line");
    const Dictionary header = DocumentOf(header_, "first");
    const Dictionary body = DocumentOf(body_, "second");

    const Dictionary& exception = ExceptionOf(body);
    SetMember(exception, "type", event, "event.error_type");
    SetMember(exception, "signal", event, "event.error_code");
    SetMember(exception, "subtype", event, "event.error_desc");
    SetMember(body, "modelCode", event, "source.device");
    SetHandled(header, "os_version", event, "source.os_version", handleOSVersion);
    SetHandled(body, "captureTime", event, "event.dts_end", handleTimeStamp);
    SetHandled(body, "procLaunch", event, "event.dts_start", handleTimeStamp);
  }

 private:
  static Dictionary DocumentOf(json::Parser& parser, const char* which) {
    auto parsed = parser.Finish();
    if (const auto* error = std::get_if<json::Error>(&parsed)) {
      LogError(std::string("failed to parse ") + which + " json with error: " + error->description);
      return {};
    }
    for (const std::string_view member : parser.LeftOut()) LogTooLarge(member);
    return std::move(std::get<Dictionary>(parsed));
  }

  json::Parser header_{{{"os_version"}}, memberLimits};
  json::Parser body_{{{"modelCode"},
                      {"captureTime"},
                      {"procLaunch"},
                      {"exception", "type"},
                      {"exception", "signal"},
                      {"exception", "subtype"}},
                     memberLimits};
  bool isBody_ = false;
};

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

std::size_t XmlBytes(char character) { return character == '&' ? 5 : character == '<' || character == '>' ? 4 : 1; }

// As much of it as a value may take up, in whole characters.
std::string_view Cut(std::string_view text) {
  std::size_t end = 0;
  for (std::size_t bytes = 0; end < text.size(); ++end) {
    bytes += XmlBytes(text[end]);
    if (bytes > valueBytes) break;
  }
  const auto isInside = [&] { return (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; };
  while (end > 0 && end < text.size() && isInside()) --end;
  return text.substr(0, end);
}

std::size_t XmlBytes(const Value& value) {
  std::size_t bytes = tagBytes;
  const auto add = [&bytes](std::string_view text) {
    for (const char character : text) bytes += XmlBytes(character);
  };
  if (const auto* text = value.As<std::string>()) add(*text);
  if (const auto* array = value.As<platform::Array>()) {
    for (const Value& element : *array) bytes += XmlBytes(element);
  }
  if (const auto* dictionary = value.As<Dictionary>()) {
    for (const auto& [key, member] : *dictionary) {
      add(key);
      bytes += tagBytes + XmlBytes(member);
    }
  }
  return bytes;
}

// A text is cut to what the event's file can hold; anything else too large for it is left out.
Dictionary Fitting(const Dictionary& event) {
  Dictionary fitting;
  for (const auto& [key, value] : event) {
    if (const auto* text = value.As<std::string>()) {
      fitting.Set(key, Cut(*text));
    } else if (XmlBytes(value) <= valueBytes) {
      fitting.Set(key, value);
    } else {
      LogTooLarge(key);
    }
  }
  return fitting;
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

struct Converter::Body {
  Dictionary event;  // as far as the sender is concerned
  text::Utf8Check check;
  std::variant<std::monostate, TextReport, JsonReport> report;
};

Converter::Converter(std::string_view type, const Sender& sender)
    : body_(new Body{{{"source.name", sender.appName},
                      {"source.version", sender.appVersion},
                      {"env.fw.version", sender.crashReporterVersion},
                      {"event.session_guid", sender.sessionGuid},
                      {"event.user_guid", sender.userGuid},
                      {"event.guid", getNewGuid()},
                      {"event.value", EventValueOfType(type)}},
                     {},
                     {}}) {}

Converter::~Converter() = default;

void Converter::Feed(std::string_view piece) {
  if (piece.empty()) return;
  body_->check.Feed(piece);
  auto& report = body_->report;
  if (std::holds_alternative<std::monostate>(report)) {
    if (piece.front() == '{') {
      report.emplace<JsonReport>();
    } else {
      report.emplace<TextReport>();
    }
  }
  if (auto* json = std::get_if<JsonReport>(&report)) json->Feed(piece);
  if (auto* text = std::get_if<TextReport>(&report)) text->Feed(piece);
}

Dictionary Converter::Finish() {
  Dictionary& event = body_->event;
  if (body_->check.IsWellFormed()) {
    if (auto* json = std::get_if<JsonReport>(&body_->report)) json->AddTo(event);
    if (auto* text = std::get_if<TextReport>(&body_->report)) text->AddTo(event);
  }
  AddDuration(event);
  return Fitting(event);
}

Dictionary EventFromReport(std::string_view report, std::string_view type, const Sender& sender) {
  Converter converter(type, sender);
  converter.Feed(report);
  return converter.Finish();
}

}  // namespace conversion
