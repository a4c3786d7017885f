#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Texts are UTF-8, or bytes from outside that should be.
namespace text {

// The leading decimal integer after white space (line breaks included) and one sign, clamped to 32 bits; 0 when there
// is none.
[[nodiscard]] std::int32_t IntegerValue(std::string_view text);

// Whether the text is one decimal digit or more, and nothing else.
[[nodiscard]] bool IsDecimal(std::string_view text);

// Blanks, one sign and zeros aside, whether it starts with Y, y, T, t or a digit 1 to 9.
[[nodiscard]] bool BooleanValue(std::string_view text);

// Without the blanks and tabs at both ends; line breaks stay.
[[nodiscard]] std::string Trim(std::string_view text);

// The pieces between the separators; one piece more than separators, empty ones included. The views live as long as
// `text`.
[[nodiscard]] std::vector<std::string_view> Split(std::string_view text, char separator);

// The rest from an index counted in UTF-16 units. Throws std::out_of_range when the text is shorter.
[[nodiscard]] std::string From(std::string_view text, std::size_t index);

// The beginning, as many UTF-16 units as given, or all there is. A character that would be cut is left out.
[[nodiscard]] std::string_view UpTo(std::string_view text, std::size_t units);

// Without its first character, or its first byte where that is malformed; `text` is not empty.
[[nodiscard]] std::string_view WithoutFirst(std::string_view text);

// Whether two texts compare equal, where an unset one compares equal to everything.
[[nodiscard]] bool EqualOrUnset(const std::optional<std::string>& left, const std::optional<std::string>& right);

[[nodiscard]] bool IsUtf8(std::string_view bytes);

// The same of bytes that come in pieces.
class Utf8Check {
 public:
  void Feed(std::string_view piece);
  // Of all of them together; a character that is cut short at the end is malformed.
  [[nodiscard]] bool IsWellFormed() const { return !failed_ && begun_.empty(); }

 private:
  void FeedBegun(std::string_view& piece);

  std::string begun_;  // a character that the next piece must complete
  bool failed_ = false;
};

// The longest beginning of at most `bytes` bytes that does not cut a character.
[[nodiscard]] std::string_view UpToBytes(std::string_view text, std::size_t bytes);

// The bytes with every malformed sequence replaced by U+FFFD.
[[nodiscard]] std::string ToUtf8(std::string_view bytes);

// Whether `needle` occurs; an empty one never does.
[[nodiscard]] bool Contains(std::string_view text, std::string_view needle);

}  // namespace text
