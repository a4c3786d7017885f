#include <gtest/gtest.h>

#include <cstdlib>

#include "support/Dates.h"
#include "support/Text.h"

namespace {

using platform::Time;

constexpr Time At(long seconds, long nanoseconds = 0) {
  return Time(std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds));
}

constexpr long march = 1614834367;  // 2021-03-04 05:06:07 UTC

TEST(Dates, ReadsBothReportPatterns) {
  const char same[] =
      "2021-03-04 05:06:07 +0000|2021-03-04 05:06:07 Z|2021-03-04 06:06:07 +0100|2021-03-04 06:06:07 +01:00|2021-03-03 "
      "23:36:07 -0530|2021-03-04 05:06:07.000 Z";
  for (const auto text : text::Split(same, '|')) EXPECT_EQ(dates::ParseReportTime(text), At(march)) << text;
  EXPECT_EQ(dates::ParseReportTime("2021-03-04 05:06:07.1234 +0000"), At(march, 123'400'000));
  EXPECT_EQ(dates::ParseReportTime("2021-03-04 05:06:07.123456789 Z"), At(march, 123'456'789));
  EXPECT_EQ(dates::ParseReportTime("2020-02-29 00:00:00 Z"), At(1582934400));
  EXPECT_EQ(dates::ParseReportTime("2016-12-31 23:59:60 Z"), At(1483228800));
  EXPECT_EQ(dates::ParseReportTime("1969-12-31 23:59:59.9 Z"), At(-1, 900'000'000));
}

TEST(Dates, RefusesEverythingElse) {
  const char refused[] =
      "|2021-03-04|2021-03-04 05:06:07|2021-03-04 05:06:07 |2021-03-04 05:06:07 +0100 |2021-03-04T05:06:07Z|"
      " 2021-03-04 05:06:07 Z|2021-03-04  05:06:07 Z|21-03-04 05:06:07 Z|2021-3-4 5:6:7 Z|2021-02-31 05:06:07 Z|"
      "2021-02-29 05:06:07 Z|2021-00-04 05:06:07 Z|2021-13-04 05:06:07 Z|2021-03-00 05:06:07 Z|2021-03-04 24:06:07 Z|"
      "2021-03-04 05:60:07 Z|2021-03-04 05:06:61 Z|2021-03-04 05:06:07. Z|2021-03-04 05:06:07.1234567891 Z|"
      "2021-03-04 05:06:07 +2400|2021-03-04 05:06:07 +0160|2021-03-04 05:06:07 +01|2021-03-04 05:06:07 UTC|"
      "-021-03-04 05:06:07 Z|12021-03-04 05:06:07 Z|9999-12-31 23:59:59 Z|0000-01-01 00:00:00 Z|"
      "1677-09-21 00:12:43 Z|2262-04-11 23:47:17 Z";
  for (const auto text : text::Split(refused, '|')) EXPECT_EQ(dates::ParseReportTime(text), std::nullopt) << text;
  EXPECT_EQ(dates::ParseEventTime("2021-03-04 05:06:07 +0000"), std::nullopt);
}

TEST(Dates, WritesInTheLocalZone) {
  const char* const cases[][3] = {{"UTC", "2021-03-04T05:06:07Z", "2021-03-04"},
                                  {"CET-1CEST,M1.5.0,M10.5.0", "2021-03-04T07:06:07+02:00", "2021-03-04"},
                                  {"IST-5:30", "2021-03-04T10:36:07+05:30", "2021-03-04"},
                                  {"NST6:30", "2021-03-03T22:36:07-06:30", "2021-03-03"},
                                  {"ODD-0:17:30", "2021-03-04T05:23:07+00:17", "2021-03-04"}};
  for (const auto& [zone, text, day] : cases) {
    setenv("TZ", zone, 1);
    EXPECT_EQ(dates::FormatEventTime(At(march, 999'999'999)), text);
    EXPECT_EQ(dates::ParseEventTime(text), At(march));
    EXPECT_EQ(dates::FormatDay(At(march)), day);
    EXPECT_EQ(dates::FormatLogTime(At(march)), "2021-03-04T05:06:07Z");
  }
}

TEST(Dates, HoldAtTheEndsOfTime) {
  setenv("TZ", "ODD-14", 1);
  EXPECT_EQ(dates::FormatLogTime(Time::min()), "1677-09-21T00:12:43Z");
  EXPECT_EQ(dates::FormatEventTime(Time::max()), "2262-04-12T13:47:16+14:00");
}

}  // namespace
