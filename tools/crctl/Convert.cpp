#include <stdexcept>
#include <variant>

#include "CRDaemon/IngestUpload.h"
#include "CRDaemon/ReportConversion.h"
#include "platform/Files.h"
#include "support/Json.h"
#include "support/Text.h"
#include "tools/crctl/Verbs.h"

namespace crctl {
namespace {

using platform::Dictionary;
using platform::Result;
using platform::Value;

conversion::Sender SenderOf(const ReportSource& source) {
  return {.appName = conversion::trimWhiteSpaces(source.application),
          .appVersion = conversion::trimWhiteSpaces(source.version),
          .crashReporterVersion = conversion::trimWhiteSpaces(source.reporterVersion),
          .sessionGuid = conversion::trimWhiteSpaces(source.session),
          .userGuid = conversion::trimWhiteSpaces(source.user)};
}

// As it comes out of the queue: the file format leaves out what it cannot hold.
Result<Value> AfterTheQueue(const Dictionary& event) {
  const Result<std::string> xml = platform::WritePropertyList(Value(event));
  if (!xml) return xml.Error();
  return platform::ParsePropertyList(*xml);
}

Answer PrintedEnvelope(const Dictionary& event) {
  const Value envelope = upload::Envelope(event, platform::Now());
  auto written = json::Write(envelope);
  if (const auto* error = std::get_if<json::Error>(&written)) return Failed(error->description);
  return {.text = Line(std::get<std::string>(written)), .json = *envelope.As<Dictionary>(), .error = {}};
}

Answer Convert(const std::string& report, const ReportSource& source) {
  const Result<Value> event = AfterTheQueue(conversion::EventFromReport(report, source.type, SenderOf(source)));
  if (!event) return Failed("the event of " + source.path + " cannot be queued: " + event.Error().message());
  return PrintedEnvelope(*event->As<Dictionary>());
}

}  // namespace

Answer ConvertReport(const ReportSource& source) {
  const Result<std::string> report = platform::ReadFile(source.path, platform::reportLimitBytes);
  if (!report) return Failed("cannot read " + source.path + ": " + report.Error().message());
  if (!text::IsUtf8(*report)) return Failed(source.path + " is not UTF-8: the daemon reads nothing of it");
  try {
    return Convert(*report, source);
  } catch (const std::out_of_range& broken) {
    return Failed(source.path + ": " + broken.what() + ": the daemon makes no event of it");
  }
}

}  // namespace crctl
