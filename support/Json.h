#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/PropertyList.h"

namespace json {

struct Error {
  std::string description;
};

// A member of the outermost object that is to be built; with `inner`, only that member of the object that it holds.
// Both are shorter than 256 bytes and live as long as the parser.
struct Member {
  std::string_view name;
  std::string_view inner = {};
};

// What one such member may come to. A text that is all of a member is cut to `bytes`; anything else beyond a limit is
// null instead, and the member's name stands in LeftOut().
struct Limits {
  std::size_t values = 4'000'000;
  std::size_t bytes = SIZE_MAX;  // of its keys and texts
  std::size_t levels = 512;
};

// A document from untrusted bytes, in pieces of any size, checked to its end. Only the members asked for are built; all
// others cost no memory. Objects become dictionaries (of a repeated key the last value counts), numbers stay what they
// are. An Error for what is not JSON, nests deeper than 512 levels, or holds a number beyond a double.
class Parser {
 public:
  explicit Parser(std::vector<Member> keep, Limits limits = {});
  Parser(Parser&&) noexcept;
  Parser& operator=(Parser&&) noexcept;
  ~Parser();

  // After an error it does nothing.
  void Write(std::string_view piece);
  // Once, after the last piece.
  [[nodiscard]] std::variant<platform::Dictionary, Error> Finish();
  [[nodiscard]] const std::vector<std::string_view>& LeftOut() const;

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

// A document in one piece, of which only the members of the outermost object named in `keep` are built. An Error also
// for one of more than 4,000,000 values.
[[nodiscard]] std::variant<platform::Dictionary, Error> Parse(std::string_view text,
                                                              std::initializer_list<std::string_view> keep);

// Compact. An Error for what JSON cannot hold: dates, data, uids, numbers that are not finite, more than 1,000
// levels. Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::variant<std::string, Error> Write(const platform::Value& value);

}  // namespace json
