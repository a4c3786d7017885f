#include <gtest/gtest.h>

#include <climits>
#include <regex>
#include <stdexcept>

#include "support/Paths.h"
#include "support/Text.h"

namespace {

using namespace std::string_literals;

TEST(Text, ReadsALeadingIntegerAndClampsIt) {
  for (const auto& text : {""s, "-"s, "x7"s, "+-7"s, "- 7"s, "\xFF"s}) EXPECT_EQ(text::IntegerValue(text), 0) << text;
  for (const auto& text : {"7"s, " \t+7x"s, "\r\n\v\f7"s, "0007"s, "7.9"s, "7\0"s + "1"})
    EXPECT_EQ(text::IntegerValue(text), 7) << text;
  EXPECT_EQ(text::IntegerValue("2147483647"), INT_MAX);
  EXPECT_EQ(text::IntegerValue("99999999999999999999"), INT_MAX);
  EXPECT_EQ(text::IntegerValue("-2147483649"), INT_MIN);
}

TEST(Text, TakesForTrueWhatStartsLikeIt) {
  for (const char* text : {"Y", "yes", "T", "t", "1", "9", " \t+001", "-3", "0y"})
    EXPECT_TRUE(text::BooleanValue(text)) << text;
  for (const char* text : {"", "0", "N", "f", "--1", "x1", "+", "\n1"}) EXPECT_FALSE(text::BooleanValue(text)) << text;
}

TEST(Text, TrimsAndSplits) {
  EXPECT_EQ(text::Trim("\t \n a b \t"), "\n a b");
  EXPECT_EQ(text::Trim(" \t"), "");
  EXPECT_EQ(text::Split("", '_'), std::vector<std::string_view>{""});
  EXPECT_EQ(text::Split("_a__b_", '_'), (std::vector<std::string_view>{"", "a", "", "b", ""}));
}

TEST(Text, CountsUtf16UnitsFromTheFront) {
  EXPECT_EQ(text::From("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80x", 4), "x");
  EXPECT_EQ(text::From("\xF0\x9F\x98\x80x", 1), "\xEF\xBF\xBDx");  // half a character is none
  EXPECT_EQ(text::From("\xE2\x82x", 2), "x");
  EXPECT_EQ(text::From("abc", 3), "");
  EXPECT_THROW((void)text::From("abc", 4), std::out_of_range);
}

TEST(Text, ReplacesEveryMalformedSequence) {
  const std::string good = "\0\x7F\xC2\x80\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"s;
  EXPECT_TRUE(text::IsUtf8(good));
  EXPECT_EQ(text::ToUtf8(good), good);
  // Cut short, a stray continuation, overlong, a surrogate, beyond the last character.
  for (const char* bytes :
       {"\xE2\x82", "\xF0\x9F\x98", "\x80", "\xC0\xAF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_FALSE(text::IsUtf8(bytes));
    EXPECT_TRUE(std::regex_match(text::ToUtf8("a"s + bytes + "z"), std::regex("a(\xEF\xBF\xBD)+z")));
  }
  EXPECT_EQ(text::ToUtf8("\xF0\x9F\x98z"), "\xEF\xBF\xBDz");
}

TEST(Paths, OnlyAPlainComponentMayBecomePartOfAPath) {
  for (const auto& text : {""s, "."s, ".."s, "a/b"s, "a\0b"s}) EXPECT_FALSE(paths::IsPlainComponent(text)) << text;
  for (const char* text : {"a", "...", ".a", "~"}) EXPECT_TRUE(paths::IsPlainComponent(text)) << text;
  for (const auto& [path, shown] : {std::pair("/Übung – ¿", "/Übung – ¿"),
                                    {"a\n[ERROR]\x1b[m\x7f", "a\\x0a[ERROR]\\x1b[m\\x7f"},
                                    {"\xc2\x9b"
                                     "2J\xc2\xa0",
                                     "\\xc2\\x9b"
                                     "2J\xc2\xa0"},
                                    {"a\xff\xc3\xa9", "a\\xff\\xc3\\xa9"},
                                    {"€\xc4\x80", "€\xc4\x80"}}) {
    EXPECT_EQ(paths::Shown(path), shown);
  }
}

}  // namespace
