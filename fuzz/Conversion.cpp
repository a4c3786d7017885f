// The first line is the kind of the report, the rest the report. Whatever it holds, the event can be queued and posted.
#include <stdexcept>

#include "CRDaemon/ReportConversion.h"
#include "fuzz/Target.h"
#include "support/Json.h"
#include "tests/simulated/SimulatedMachine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SimulatedMachine machine;
  std::string_view report = fuzz::TextOf(data, size);
  const std::string_view type = fuzz::TakeLine(report);
  try {
    const platform::Value event(conversion::EventFromReport(report, type, {"Photo", "1.2", "9.0", "session", "user"}));
    const auto list = platform::WritePropertyList(event);
    fuzz::Require(bool{list}, "the event can be queued");
    const auto queued = platform::ParsePropertyList(*list);
    fuzz::Require(bool{queued}, "the queued event can be read");
    const auto body = json::Write(*queued);
    fuzz::Require(body.index() == 0, "the queued event can be posted");
    fuzz::Require(json::Parse(std::get<0>(body), {"event.guid"}).index() == 0, "the post is JSON");
  } catch (const std::out_of_range&) {
    fuzz::Require(report.find('\n') == std::string_view::npos, "only a report of one line cannot be converted");
  }
  return 0;
}
