#include <gtest/gtest.h>

#include "platform/PropertyList.h"

namespace {

using namespace std::string_literals;
using platform::Array;
using platform::Dictionary;
using platform::Value;

template <typename... States>
Array ArrayOf(const States&... states) {
  return {Value(Value::State(states))...};
}

// Null when it does not survive.
Value Rewritten(const Value& value) {
  const auto text = platform::WritePropertyList(value);
  const auto read = text ? platform::ParsePropertyList(*text) : std::errc::invalid_argument;
  return read ? *read : Value();
}

std::string Xml(const std::string& body) { return "<plist version=\"1.0\">" + body + "</plist>"; }

// A binary property list of arrays, the first on top. Each byte of an array is the number of one.
std::string Binary(const std::vector<std::string>& arrays) {
  std::string bytes = "bplist00", offsets;
  for (const auto& array : arrays) {
    offsets += static_cast<char>(bytes.size());
    bytes += static_cast<char>(0xA0U | array.size());
    bytes += array;
  }
  const std::string count(1, static_cast<char>(arrays.size())), table(1, static_cast<char>(bytes.size()));
  return bytes + offsets + "\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0"s + count + std::string(15, '\0') + table;
}

TEST(PropertyList, CarriesEveryTypeAndTheOrderThroughARewrite) {
  const Array values =
      ArrayOf(true, false, INT64_MIN, std::int64_t{-1}, INT64_MAX, UINT64_MAX / 2 + 1, UINT64_MAX, 0.1, 1e300, ""s,
              "\xC3\xA4 <&>\"'\n\t\xF0\x9F\x98\x80"s, platform::Time(std::chrono::seconds(1614834367)),
              std::chrono::sys_seconds(std::chrono::hours(17803392)), platform::Data{"\0\xFF\x01"s}, platform::Data{},
              platform::Uid{7}, Array{}, Dictionary{});
  Dictionary all = {{"z", Value(values)}, {"", "x"}, {"m", "old"}, {"a", "gone"}, {"b", Value(std::int64_t{0})}};
  for (const auto& value : values)
    all.Set(std::to_string(99 - all.size()), Value(Dictionary{{"y", value}, {"c", "x"}}));
  all.Remove("a");
  all.Set("m", "replaced in place");
  EXPECT_EQ(Rewritten(Value(all)), Value(all));
}

TEST(PropertyList, RefusesWhatCouldHarm) {
  const auto nested = [](int levels) {
    std::string body;
    for (int level = 0; level < levels; ++level) body.insert(0, "<array>").append("</array>");
    return Xml(body);
  };
  EXPECT_TRUE(platform::ParsePropertyList(nested(128)));
  EXPECT_TRUE(platform::ParsePropertyList(Binary({"\1\2"s, "", ""})));
  std::vector<std::string> bomb(13);
  for (std::size_t i = 0; i < 12; ++i) bomb[i].assign(14, static_cast<char>(i + 1));
  for (const auto& bytes : {nested(129), nested(9'999), Binary({"\0"s}), Binary({"\1"s, "\0"s}), Binary(bomb), ""s,
                            "garbage"s, Xml("<dict><key>a</key>"), "bplist00"s}) {
    EXPECT_EQ(platform::ParsePropertyList(bytes).Error(), std::errc::invalid_argument) << bytes.substr(0, 60);
  }
  const std::string big = Xml("<string>" + std::string(4U << 20U, 'x') + "</string>");
  EXPECT_EQ(platform::ParsePropertyList(big).Error(), std::errc::file_too_large);
}

TEST(PropertyList, WritesOnlyWhatItCanReadAgain) {
  EXPECT_EQ(platform::WritePropertyList(Value(Array{{}})).Error(), std::errc::invalid_argument);
  EXPECT_EQ(Rewritten(Value("a\x01\0\x1F\xFF z"s)), Value("a\xEF\xBF\xBD z"));
}

}  // namespace
