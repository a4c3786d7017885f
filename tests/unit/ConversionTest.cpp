#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "CRDaemon/ReportConversion.h"
#include "tests/simulated/SimulatedMachine.h"

namespace {

using conversion::EventFromReport;
using platform::Dictionary;
using platform::Value;

constexpr char absent[] = "(absent)";

const conversion::Sender sender = {"Photo", "1.2", "9.0", "session", "user"};

std::string TextOf(const Dictionary& event, std::string_view key) {
  const Value* value = event.Find(key);
  if (value == nullptr) return absent;
  const auto* text = value->As<std::string>();
  return text == nullptr ? "(no text)" : *text;
}

class Conversion : public testing::Test {
 protected:
  Conversion() {
    setenv("TZ", "CET-1", 1);
    tzset();
  }

  SimulatedMachine machine_;
};

TEST_F(Conversion, TextReportLines) {
  struct Case {
    const char* line;
    const char* key;
    const char* expected;
  };
  for (const Case& c : {
           Case{"Exception Type:  EXC_CRASH (SIGABRT)\t", "event.error_type", "EXC_CRASH (SIGABRT)"},
           Case{"Signal Number: 11", "event.error_code", "11"},
           Case{" Signal Number: 11", "event.error_code", absent},
           Case{"signal number: 11", "event.error_code", absent},
           Case{"Publisher Process Name: kill", "event.error_desc", "Received signal from kill"},
           Case{"Publisher Process Name: kill", "event.value", "abnormal:signal"},
           Case{"User GUID: other", "event.user_guid", "other"},
           Case{"Crash GUID: other", "event.guid", "other"},
           Case{"SkylanceSessionId: a:b", "event.session_guid", "a:b"},
           Case{"Malvex Crash Reporter Version:", "env.fw.version", ""},
           Case{"OS Version:   Mac OS X 10.14.6 (18G103)", "source.os_version", "10.14.6"},
           Case{"OS Version: 7 or v12.3.", "source.os_version", "12.3"},
           Case{"OS Version: unknown 12.", "source.os_version", absent},
           Case{"Date/Time: 2021-03-04 05:06:07 +0000", "event.dts_end", "2021-03-04T06:06:07+01:00"},
           Case{"Date/Time: 2021-02-31 05:06:07 +0000", "event.dts_end", absent},
           Case{"Exception Type: A\nException Type: B", "event.error_type", "B"},
           Case{"no colon", "event.error_type", absent},
       }) {
    EXPECT_EQ(TextOf(EventFromReport(c.line, "0", sender), c.key), c.expected) << c.line;
  }
}

TEST_F(Conversion, SenderAndTypeStandInEveryEvent) {
  const Dictionary event = EventFromReport("", "0", sender);
  EXPECT_EQ(TextOf(event, "source.name"), "Photo");
  EXPECT_EQ(TextOf(event, "event.session_guid"), "session");
  EXPECT_EQ(TextOf(event, "event.guid").size(), 36U);
  EXPECT_NE(TextOf(event, "event.guid"), TextOf(EventFromReport("", "0", sender), "event.guid"));
  EXPECT_EQ(TextOf(event, "event.count"), absent);
  EXPECT_EQ(event.size(), 7U);
  const std::pair<const char*, const char*> types[] = {
      {"0", "abnormal:crash"}, {"1", "abnormal:signal"}, {"2", "abnormal:hang"}, {"3", "abnormal:others"}};
  for (const auto& [type, value] : types) EXPECT_EQ(TextOf(EventFromReport("", type, sender), "event.value"), value);
}

TEST_F(Conversion, DurationComesFromTheFormattedTimes) {
  const char* const report =
      "Launch Time: 2021-03-04 05:05:57.9999 +0100\n"
      "Date/Time: 2021-03-04 05:06:07.1000 +0100\n";
  EXPECT_EQ(TextOf(EventFromReport(report, "0", sender), "event.count"), "10.000000");
  EXPECT_EQ(TextOf(EventFromReport("Date/Time: 2021-03-04 05:06:07 +0100", "0", sender), "event.count"), absent);
}

TEST_F(Conversion, JsonReport) {
  const Dictionary event = EventFromReport(
      "{\"os_version\":\"macOS 12.6.1 (21G217)\"}\n"
      "{\"modelCode\":\"Mac14,2\",\"captureTime\":\"2021-03-04 05:06:07.1234 +0100\","
      "\"procLaunch\":\"2021-03-04 05:06:00.0000 +0100\",\"threads\":[{}],"
      "\"exception\":{\"type\":\"EXC_CRASH\",\"signal\":\"SIGABRT\",\"subtype\":null,\"codes\":[1]}}",
      "0", sender);
  EXPECT_EQ(TextOf(event, "source.os_version"), "12.6.1");
  EXPECT_EQ(TextOf(event, "source.device"), "Mac14,2");
  EXPECT_EQ(TextOf(event, "event.error_type"), "EXC_CRASH");
  EXPECT_EQ(TextOf(event, "event.error_code"), "SIGABRT");
  EXPECT_EQ(TextOf(event, "event.error_desc"), absent);
  EXPECT_EQ(TextOf(event, "event.count"), "7.000000");
}

TEST_F(Conversion, NumbersStayNumbersAndOddMembersDoNoHarm) {
  const Dictionary event = EventFromReport(
      "{\"os_version\":[12]}\n"
      "{\"modelCode\":[1,null],\"captureTime\":{},\"exception\":{\"signal\":18446744073709551615,\"type\":-1.5}}",
      "0", sender);
  EXPECT_EQ(*event.Find("event.error_code"), Value(Value::State(std::uint64_t{18446744073709551615U})));
  EXPECT_EQ(*event.Find("event.error_type"), Value(Value::State(-1.5)));
  EXPECT_EQ(TextOf(event, "source.os_version"), absent);
  EXPECT_EQ(machine_.CountLogged("report member is no text: os_version"), 1U);
  EXPECT_EQ(machine_.CountLogged("report member is no text: captureTime"), 1U);
  EXPECT_TRUE(platform::WritePropertyList(Value(event)));
}

TEST_F(Conversion, BrokenDocumentsLeaveTheRest) {
  const Dictionary event = EventFromReport("{broken\n{\"modelCode\":\"Mac14,2\"}", "2", sender);
  EXPECT_EQ(TextOf(event, "source.device"), "Mac14,2");
  EXPECT_EQ(TextOf(event, "event.value"), "abnormal:hang");
  ASSERT_EQ(machine_.log.size(), 1U);
  EXPECT_EQ(machine_.log[0].level, "ERROR");
  EXPECT_TRUE(machine_.log[0].text.starts_with("failed to parse first json with error: ")) << machine_.log[0].text;
  static_cast<void>(EventFromReport("{}\n", "0", sender));
  EXPECT_TRUE(machine_.log.back().text.starts_with("failed to parse second json with error: "));
  EXPECT_THROW(static_cast<void>(EventFromReport("{}", "0", sender)), std::out_of_range);
}

TEST_F(Conversion, TheSameInPieces) {
  const std::string reports[] = {
      "Exception Type: \xC3\xA4\n\nSignal Number: 11\nDate/Time: 2021-03-04 05:06:07 +0000",
      "{\"os_version\":\"macOS "
      "12.6\"}\n{\"modelCode\":[-1.25e1,\"\xC3\xA4\"],\"exception\":{\"type\":\"T\",\"codes\":[1]}}"};
  for (const std::string& report : reports) {
    Dictionary whole = EventFromReport(report, "0", sender);
    conversion::Converter converter("0", sender);
    for (const char& byte : report) converter.Feed({&byte, 1});
    Dictionary pieced = converter.Finish();
    whole.Remove("event.guid");
    pieced.Remove("event.guid");
    EXPECT_EQ(pieced, whole);
  }
  EXPECT_TRUE(machine_.log.empty());
}

// Whatever it holds, a report costs us neither its event nor a wrong line in the log.
TEST_F(Conversion, EveryEventFitsTheQueue) {
  const auto longText = [](const char* part) {
    std::string text;
    while (text.size() < 1'000'000) text += part;
    return text;
  };
  const std::string members[] = {
      "\"" + longText("&") + "\"",         "[\"" + longText("&").substr(0, 60'000) + "\"]", "[" + longText("0,") + "0]",
      longText("[") + "0" + longText("]"), std::string(300, '[') + std::string(300, ']'),   R"({"CF$UID":1})"};
  for (const std::string& member : members) {
    std::string report = R"({}
{"exception":{"subtype":"T","type":)";
    report.append(member).append(R"(,"signal":)").append(member).append(R"(},"modelCode":)").append(member).append("}");
    const Dictionary event = EventFromReport(report, "0", sender);
    EXPECT_TRUE(platform::WritePropertyList(Value(event))) << member.substr(0, 20);
    EXPECT_EQ(TextOf(event, "event.error_desc"), member.starts_with("[[[[") && member.size() > 1000 ? absent : "T");
  }
  const Dictionary event = EventFromReport("Exception Type: " + longText("\xC3\xA4\xE2\x82\xAC"), "0", sender);
  EXPECT_EQ(TextOf(event, "event.error_type").size(), 65535U);
  machine_.log.clear();
  EXPECT_EQ(EventFromReport("{\"os_version\":\"12.6\"\xFF", "0", sender).size(), 7U);
  EXPECT_TRUE(machine_.log.empty());
}

}  // namespace
