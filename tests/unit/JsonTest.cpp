#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "support/Json.h"
#include "support/Text.h"

namespace {

using namespace std::string_literals;
using platform::Array;
using platform::Dictionary;
using platform::Value;

// The member "k" of a document; where there is none, a text that says why.
Value Parsed(const std::string& document) {
  const auto result = json::Parse(document, {"k"});
  if (const auto* error = std::get_if<json::Error>(&result)) return Value("error: " + error->description);
  const Value* value = std::get<Dictionary>(result).Find("k");
  return value == nullptr ? Value("absent") : *value;
}

bool IsError(const std::string& document) { return json::Parse(document, {"k"}).index() == 1; }

std::string Written(Value::State value) {
  const auto result = json::Write(Value(std::move(value)));
  const auto* text = std::get_if<std::string>(&result);
  return text == nullptr ? "error: " + std::get<json::Error>(result).description : *text;
}

TEST(Json, KeepsNumbersWhatTheyAreBothWays) {
  const char numbers[] =
      "-9223372036854775808|9223372036854775807|18446744073709551615|1.8446744073709552e+19|0.1|"
      "9.5367431640625e-07|36.797000000000004|5e-324|1e+300";
  for (const auto digits : text::Split(numbers, '|')) {
    EXPECT_EQ(Written(Parsed("{\"k\":" + std::string(digits) + "}").state()), digits);
  }
  EXPECT_EQ(Parsed(R"({"k":[9223372036854775807,9223372036854775808,1.0]})"),
            Value(Array{Value(INT64_MAX), Value(UINT64_MAX / 2 + 1), Value(1.0)}));
}

TEST(Json, BuildsOnlyTheNamedMembersOfTheOutermostObject) {
  const auto result = json::Parse(
      R"( {"skip":{"k":[1]},"k":1,"k":{"a":[{"k":null}],"b":true,"a":"\u00e4\n\ud83d\ude00"},"l":2,"k2":3} )",
      {"k", "l"});
  const Dictionary inner = {{"a", "\xC3\xA4\n\xF0\x9F\x98\x80"}, {"b", Value(true)}};
  EXPECT_EQ(std::get<Dictionary>(result), (Dictionary{{"k", Value(inner)}, {"l", Value(std::int64_t{2})}}));
}

TEST(Json, RefusesWhatIsNotAJsonObject) {
  const char refused[] =
      R"(| |[]|1|"k"|null|{"k":1|{"k":1}{}|{"k":1e400}|{"s":[-1e400]}|{"k":"\ud800"}|{"k":01}|{'k':1}|{"k":1,}|{"k":NaN}|{"k":"\x"}|{k:1}|{"k":1 /**/})"
      "|\xEF\xBB\xBF{}|{\"k\":\"\xFF\"}|{\"s\":\"\xED\xA0\x80\"}|{\"k\":\"\n\"}|{\"s\":{\"a\":{},1,2,\"b\":3}}|{\"s\":["
      "\"},1,\n2,\"]}";
  for (const auto document : text::Split(refused, '|')) EXPECT_TRUE(IsError(std::string(document))) << document;
  EXPECT_EQ(Parsed(R"({"k":1}x)"), Value("error: extra data at byte 7"));
}

TEST(Json, BoundsDepth) {
  for (const std::string start : {"{\"k\":", "{\"skipped\":"}) {
    const auto nested = [&](std::size_t levels) {
      return start + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
    };
    EXPECT_FALSE(IsError(nested(512)));
    EXPECT_TRUE(IsError(nested(513)));
    EXPECT_TRUE(IsError(nested(1'000'000)));
    const auto inArray = [](std::size_t outer, std::size_t inner) {
      return "{\"s\":" + std::string(outer, '[') + "{}," + std::string(inner, '[') + std::string(inner, ']') + ",{}" +
             std::string(outer, ']') + "}";
    };
    EXPECT_FALSE(IsError(inArray(500, 11)));
    EXPECT_TRUE(IsError(inArray(500, 12)));
  }
}

// What is skipped unseen must be what the parser would have taken. It sees every byte that comes alone.
TEST(Json, JudgesAWholeDocumentAsItsBytesOneByOne) {
  const std::string document =
      R"({"s":[{"a":"b"},{"c" : [-12, {"d},{":"\n\"e\/"},{},[]]},{"f":[]}, "ghijklmnopqrs",{}, 0,true ,{"t":"u"},)"
      R"({"w":{"x":null,"y":{}}},{"z":123456789012345678},{"v":1.5},{}],"k":{"a":{},"b":[{},1,{}]}})";
  const auto judge = [](std::string_view text, std::size_t pieceBytes) {
    json::Parser parser({{"k"}});
    for (; !text.empty(); text.remove_prefix(std::min(pieceBytes, text.size())))
      parser.Write(text.substr(0, pieceBytes));
    const auto parsed = parser.Finish();
    const auto* whole = std::get_if<Dictionary>(&parsed);
    return whole == nullptr ? "refused" : Written(*whole);
  };
  EXPECT_EQ(judge(document, SIZE_MAX), R"({"k":{"a":{},"b":[{},1,{}]}})");
  for (std::size_t at = 0; at < document.size(); ++at) {
    for (const char byte : "\"\\{}[],:-0.ex \x1F\x85\xC3"s) {
      std::string changed = document;
      changed[at] = byte;
      EXPECT_EQ(judge(changed, SIZE_MAX), judge(changed, 1)) << changed;
    }
    EXPECT_EQ(judge(document.substr(0, at), SIZE_MAX), "refused");
  }
  EXPECT_EQ(Parsed(R"({"s":[{},"skipped as plain",{},'x',{}]})"), Value("error: syntax error at byte 31"));
  EXPECT_EQ(Parsed(R"({"s":[{}x{},1,2]})"), Value("error: syntax error at byte 8"));
}

// Byte by byte, so that whatever can be cut is cut.
TEST(Json, ReadsPiecesAndBoundsWhatAMemberMayComeTo) {
  const std::tuple<const char*, const char*, std::size_t> cases[] = {
      {R"({"k":[1,[-2.5e1]]})", R"({"k":[1,[-25]]})", 0},
      {R"({"k":[1,2,3,4],"l":1,"x":{"a":true}})", R"({"k":null,"x":{"a":true}})", 1},
      {R"({"x":{"a":[[[[1]],2]],"b":18446744073709551615,"c":[1,2,3,4,5]}})",
       R"({"x":{"a":null,"b":18446744073709551615}})", 1},
      {R"({"k":{"1234":"5678"},"x":[{"a":1}]})", R"({"k":{"1234":"5678"},"x":[]})", 0},
      {R"({"k":{"1234":"56789"},"k":["123456789"]})", R"({"k":null})", 1},
      {R"({"k":"1234\u00e456789","x":{"a":1,"a":2},"x":{"b":null}})",
       "{\"k\":\"1234\xC3\xA4"
       "56\",\"x\":{\"b\":null}}",
       0},
      {R"({"k":{"a":1,"b":2,"a":{}}})", R"({"k":{"a":{},"b":2}})", 0},
  };
  for (const auto& [document, expected, leftOut] : cases) {
    json::Parser parser({{"k"}, {"x", "a"}, {"x", "b"}}, {.values = 4, .bytes = 8, .levels = 3});
    for (const char& byte : std::string_view(document)) parser.Write({&byte, 1});
    const auto parsed = parser.Finish();
    ASSERT_EQ(parsed.index(), 0U) << std::get<json::Error>(parsed).description;
    EXPECT_EQ(Written(std::get<Dictionary>(parsed)), expected);
    EXPECT_EQ(parser.LeftOut().size(), leftOut) << document;
  }
}

TEST(Json, WritesCompactlyAndOnlyWhatJsonCanHold) {
  EXPECT_EQ(Written(Dictionary{{"a\"\\", Value(Array{{}, Value(true)})}, {"", Value(Dictionary())}}),
            R"({"a\"\\":[null,true],"":{}})");
  EXPECT_EQ(Written("\x1F\n/\x7F\xC3\xA4\xFF"s), "\"\\u001f\\u000a/\x7F\xC3\xA4\xEF\xBF\xBD\"");
  for (const Value& value :
       Array{{INFINITY}, {platform::Time()}, {std::chrono::sys_seconds()}, {platform::Data()}, {platform::Uid()}}) {
    EXPECT_TRUE(Written(Array{{}, value}).starts_with("error: JSON cannot hold ")) << value.state().index();
  }
  Value deep;
  for (int level = 0; level < 1000; ++level) {
    Array outer(1);
    outer[0] = std::exchange(deep, Value());
    deep = Value(std::move(outer));
  }
  EXPECT_EQ(Written(deep.state()).size(), 2004U);
  EXPECT_EQ(Written(Array{deep}), "error: JSON cannot hold a value nested too deeply");
}

}  // namespace
