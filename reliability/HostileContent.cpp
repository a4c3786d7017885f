#include "reliability/HostileContent.h"

#include <string_view>
#include <utility>

namespace reliability {

namespace {

using namespace std::string_literals;

constexpr char header[] = "{\"os_version\":\"macOS 12.6.1 (21G217)\"}\n";
constexpr std::size_t propertyListBytes = std::size_t{4} << 20U;

// Parts, whole, up to about so many bytes.
std::string Filled(std::size_t bytes, std::string_view part) {
  std::string text;
  text.reserve(bytes + part.size());
  while (text.size() + part.size() <= bytes) text += part;
  return text;
}

Content Json(std::string name, const std::string& before, std::size_t bytes, const std::string& part,
             const std::string& after) {
  return {"JSON, " + std::move(name), [=] { return header + before + Filled(bytes, part) + after; }};
}

Content Text(std::string name, const std::string& before, std::size_t bytes, const std::string& part,
             const std::string& after = {}) {
  return {"text, " + std::move(name), [=] { return before + Filled(bytes, part) + after; }};
}

// The beginning of an object, none of whose keys stands twice.
std::string DistinctKeys(std::size_t bytes) {
  std::string text = "{";
  text.reserve(bytes + 64);
  for (std::size_t i = 0; text.size() < bytes; ++i) text.append("\"").append(std::to_string(i)).append("\":0,");
  return text;
}

std::string Nested(std::size_t levels, const std::string& opening, const std::string& closing) {
  return Filled(levels * opening.size(), opening) + Filled(levels * closing.size(), closing);
}

void AddJson(std::vector<Content>& all, std::size_t bytes) {
  const std::string kept = "{\"modelCode\":", type = "{\"exception\":{\"type\":", end = "\"\":0}";
  const auto add = [&](auto&&... parts) { all.push_back(Json(std::forward<decltype(parts)>(parts)...)); };
  for (const std::string& start : {"{\"x\":"s, kept, type}) {
    const std::string where = start == kept   ? " in a kept member"
                              : start == type ? " in a kept member of a member"
                                              : "";
    const std::string ends = start == type ? "}}" : "}";
    add("arrays that never end" + where, start, bytes, "[", "");
    add("objects that never end" + where, start, bytes, "{\"a\":", "");
    add("numbers without end" + where, start + "[", bytes, "0,", "0]" + ends);
    add("empty containers" + where, start + "[", bytes, "[],{},", "0]" + ends);
    add("one key over and over" + where, start + "{", bytes, "\"k\":1,", end + ends);
    add("a text" + where, start + "\"", bytes, "x&", "\"" + ends);
    add("escapes" + where, start + "\"", bytes, "\\u0041\\n", "\"" + ends);
    add("a number of many digits" + where, start, bytes, "7", ends);
    add("a fraction of many digits" + where, start + "0.", bytes, "1", ends);
    add("an exponent of many digits" + where, start + "1e", bytes, "9", ends);
    all.push_back({"JSON, different keys" + where,
                   [=] { return (header + start).append(DistinctKeys(bytes)).append(end).append(ends); }});
  }
  add("a member repeated", "{", bytes, "\"exception\":{\"type\":\"A\",\"signal\":[1,2]},\"modelCode\":{\"a\":1},", end);
  add("a key without end", "{\"", bytes, "k", "\":0}");
  add("keys in escapes", "{", bytes, "\"\\u0074hreads\":0,", end);
  add("blanks", "", bytes, " \r\n\t", "{}");
  add("the same document again and again", "", bytes, "{}", "");
  add("NULs", "{", bytes, "\0"s, "}");
  add("bytes that are no UTF-8", "{\"x\":\"", bytes, "\xFF", "\"}");
  add("no UTF-8 at the very end", kept + "\"M\",\"x\":\"", bytes, "x", "\"}\xC3");
  add("two-byte characters", "{\"x\":\"", bytes, "\xC3\xA4", "\"}");
  add("a date of many digits", "{\"captureTime\":\"2021-03-04 05:06:07.", bytes, "1", " +0100\"}");
  add("dates out of range",
      "{\"captureTime\":\"9999-12-31 23:59:60 -2359\",\"procLaunch\":\"0000-01-01 00:00:00 +2359\",\"x\":\"", bytes,
      "x", "\"}");
  const std::string triggered = "{\"triggered\":1,\"queue\":\"q\"},";
  add("threads that all crashed", "{\"threads\":[", bytes, triggered, "{}],\"usedImages\":[{\"name\":\"a\"");
  add("queues in escapes", "{\"threads\":[", bytes, "{\"triggered\":1,\"queue\":\"\\u0041\"},",
      "{}],\"usedImages\":[{\"name\":\"a\"");
  add("frames without image", "{\"threads\":[{\"triggered\":1,\"frames\":[", bytes, "{},",
      "{}]}],\"usedImages\":[{\"name\":\"a\"");
  add("one past many images",
      "{\"threads\":[{\"triggered\":1,\"frames\":[{\"imageIndex\":" + std::to_string(bytes / 3 + 1) +
          "}]}],\"usedImages\":[",
      bytes, "{},", "{\"name\":\"a\"");
  all.push_back({"JSON, one line", [=] { return "{" + Filled(bytes, "\"x\":1,"); }});
  all.push_back({"JSON, opening braces", [=] { return Filled(bytes, "{"); }});
  all.push_back({"JSON, opening braces, line by line", [=] { return Filled(bytes, "{\n"); }});
  all.push_back({"JSON, a long header", [=] { return "{\"os_version\":\"" + Filled(bytes, "1.") + "\"}\n{}"; }});
}

void AddText(std::vector<Content>& all, std::size_t bytes) {
  const auto add = [&](auto&&... parts) { all.push_back(Text(std::forward<decltype(parts)>(parts)...)); };
  all.push_back({"text, none", [] { return std::string(); }});
  add("NULs", "", bytes, "\0"s);
  add("one line", "", bytes, "x");
  add("empty lines", "", bytes, "\n");
  add("colons", "", bytes, ":");
  add("bytes that are no UTF-8", "Exception Type: ", bytes, "\xED\xA0\x80");
  add("a value without end", "Exception Type: ", bytes, "&");
  add("blanks without end", "Exception Type:", bytes, " ", "X\n");
  add("a version without end", "OS Version: ", bytes, "1.");
  add("digits and blanks for a version", "OS Version: ", bytes, "1 ");
  add("a date without end", "Date/Time: 2021-03-04 05:06:07.", bytes, "0");
  add("dates without end", "", bytes, "Date/Time: 2021-03-04 05:06:07 +0100\nLaunch Time: 9999-99-99 05:06:07 +0100\n");
  add("one key over and over", "", bytes, "Publisher Process Name: &<>\n");
  add("process ids", "", bytes, "4711");
  add("process ids in brackets", "Process", bytes, "[4711]", ":");
  add("crashed threads", "", bytes, "Crashed:: q\n0 Photo\n");
  add("almost crashed threads", "", bytes, "CRASHED:");
  add("a crashed thread without end", "Crashed:: ", bytes, "\xF0\x9F\x98\x80");
  add("images without end", "Binary Images\n", bytes, "\n");
}

std::string Xml(const std::string& body) { return "<plist version=\"1.0\">" + body + "</plist>"; }

// Objects as given, each offset in four bytes, each reference in two.
std::string Binary(const std::vector<std::string>& objects, std::uint64_t count, std::uint64_t top = 0) {
  const auto number = [](std::uint64_t value, int bytes) {
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8U * static_cast<unsigned>(i)));
    return text;
  };
  std::string bytes = "bplist00", offsets;
  for (const std::string& object : objects) {
    offsets += number(bytes.size(), 4);
    bytes += object;
  }
  const std::size_t table = bytes.size();
  return bytes + offsets + "\0\0\0\0\0\0\4\2"s + number(count, 8) + number(top, 8) + number(table, 8);
}

std::string BinaryArray(const std::vector<unsigned>& members) {
  std::string bytes(1, static_cast<char>(0xA0U | members.size()));
  for (const unsigned member : members)
    bytes.append(1, static_cast<char>(member >> 8U)).append(1, static_cast<char>(member));
  return bytes;
}

// Keys that libplist's hash cannot tell apart.
std::string CollidingKeys(std::size_t count, std::size_t padding) {
  std::string text = "<dict>";
  for (std::size_t i = 0; i < count; ++i) {
    text.append("<key>").append(padding, 'p');
    for (unsigned bit = 0; bit < 14; ++bit) text += (i >> bit & 1U) != 0 ? "bA" : "ab";
    text += "</key><true/>";
  }
  return text + "</dict>";
}

std::string ChainOfArrays(unsigned levels, bool closed) {
  std::vector<std::string> objects;
  for (unsigned i = 0; i < levels; ++i)
    objects.push_back(BinaryArray(i + 1 < levels ? std::vector{i + 1} : std::vector<unsigned>()));
  if (closed) objects.back() = BinaryArray({0});
  return Binary(objects, objects.size());
}

}  // namespace

std::vector<Content> HostileReports(std::size_t bytes) {
  std::vector<Content> all;
  AddJson(all, bytes);
  AddText(all, bytes);
  return all;
}

std::vector<Content> HostilePropertyLists() {
  const std::size_t most = propertyListBytes - 1000;  // the rest is what the writer puts around it
  return {
      {"XML, deep arrays", [=] { return Xml(Nested(100'000, "<array>", "</array>")); }},
      {"XML, deep dictionaries", [=] { return Xml(Nested(50'000, "<dict><key>a</key>", "</dict>")); }},
      {"XML, as deep as is read", [] { return Xml(Nested(128, "<array>", "</array>")); }, true},
      {"XML, arrays that never end", [=] { return "<plist>" + Filled(most, "<array>"); }},
      {"XML, keys of one hash", [] { return Xml(CollidingKeys(4000, 0)); }, true},
      {"XML, long keys of one hash", [] { return Xml(CollidingKeys(4000, 900)); }, true},
      {"XML, too many keys", [] { return Xml(CollidingKeys(16'000, 0)); }},
      {"XML, empty texts without end", [=] { return Xml("<array>" + Filled(most, "<string/>") + "</array>"); }},
      {"XML, entities", [=] { return Xml("<string>" + Filled(most, "&amp;") + "</string>"); }},
      {"XML, entities that never end", [=] { return Xml("<string>" + Filled(most, "&") + "</string>"); }},
      {"XML, entities of its own",
       [] { return "<!DOCTYPE plist [<!ENTITY a \"" + Filled(1000, "x") + "\">]>" + Xml("<string>&a;&a;</string>"); }},
      {"XML, a text as long as can be", [=] { return Xml("<string>" + Filled(most, "x") + "</string>"); }, true},
      {"XML, comments", [=] { return Xml(Filled(most, "<!---->") + "<true/>"); }, true},
      {"XML, quotes that never end", [=] { return "<plist version=\"" + Filled(most, "x"); }},
      {"XML, no UTF-8", [=] { return Xml("<string>" + Filled(most, "\xFF") + "</string>"); }},
      {"XML, data that is none", [=] { return Xml("<data>" + Filled(most, "=") + "</data>"); }},
      {"XML, a number of many digits", [=] { return Xml("<integer>" + Filled(most, "9") + "</integer>"); }},
      {"XML, a date out of range", [] { return Xml("<date>99999999-99-99T99:99:99Z</date>"); }},
      {"XML, cut short", [] { return Xml(CollidingKeys(100, 0)).substr(0, 500); }},
      {"NULs", [=] { return Filled(most, "\0"s); }},
      {"nothing", [] { return std::string(); }},
      {"too large", [] { return Filled(2 * propertyListBytes, "x"); }},
      {"binary, a deep chain", [] { return ChainOfArrays(60'000, false); }},
      {"binary, a cycle", [] { return ChainOfArrays(50, true); }},
      {"binary, the longest sound chain", [] { return ChainOfArrays(128, false); }, true},
      {"binary, shared references",
       [] {
         std::vector<std::string> objects;
         for (unsigned i = 1; i < 30; ++i) objects.push_back(BinaryArray(std::vector<unsigned>(14, i)));
         objects.push_back(BinaryArray({}));
         return Binary(objects, objects.size());
       }},
      {"binary, a shared text",
       [] {
         const std::string text = "\x5F\x12\x00\x0F\xFF\xFF"s + std::string(0xFFFFF, 'x');
         return Binary({BinaryArray(std::vector<unsigned>(14, 1)), text}, 2);
       }},
      {"binary, more objects than bytes", [] { return Binary({BinaryArray({})}, UINT64_MAX); }},
      {"binary, a top that is not there", [] { return Binary({BinaryArray({})}, 1, 7); }},
      {"binary, a text longer than the file", [] { return Binary({"\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}, 1); }},
      {"binary, a date beyond all years", [] { return Binary({"\x33\x7F\xEF\xFF\xFF\xFF\xFF\xFF\xFF"s}, 1); }},
      {"binary, a key with a NUL",
       [] {
         return Binary({"\xD1\0\1\0\2"s, "\x51\0"s, "\x51x"s}, 3);
       }},
  };
}

}  // namespace reliability
