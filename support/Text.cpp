#include "support/Text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace text {

namespace {

constexpr char blanks[] = " \t";
constexpr char whiteSpace[] = " \t\n\v\f\r";
constexpr char replacementCharacter[] = "\xEF\xBF\xBD";

std::string_view WithoutLeading(std::string_view text, std::string_view characters) {
  text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
  return text;
}

struct Sequence {
  std::size_t length = 1;
  bool wellFormed = true;
  bool isCut = false;  // well-formed as far as it goes
};

// The one that `bytes`, not empty, begin with. A malformed one is as long as a well-formed one could still have
// followed.
Sequence FirstSequence(std::string_view bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // The second byte alone is what rules out overlong forms, surrogates and everything beyond U+10FFFF.
  unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (std::size_t i = 1; i < length; ++i) {
    if (i == bytes.size()) return {i, false, true};
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (byte < lowest || byte > highest) return {i, false};
    lowest = 0x80;
    highest = 0xBF;
  }
  return {length, true};
}

// How many of the first bytes are ASCII for certain, seen by whole blocks.
std::size_t AsciiBlocks(std::string_view bytes) {
  constexpr std::size_t words = 4;
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::array<std::uint64_t, words> block{};
  std::size_t count = 0;
  for (; bytes.size() - count >= sizeof block; count += sizeof block) {
    std::memcpy(block.data(), bytes.data() + count, sizeof block);
    if (((block[0] | block[1] | block[2] | block[3]) & highBits) != 0) break;
  }
  return count;
}

// UTF-16 units of the first character; a malformed byte counts as one.
std::size_t UnitsOfFirst(std::string_view text) {
  const Sequence sequence = FirstSequence(text);
  return sequence.wellFormed && sequence.length == 4 ? 2 : 1;
}

}  // namespace

std::int32_t IntegerValue(std::string_view text) {
  text = WithoutLeading(text, whiteSpace);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const std::int64_t limit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + (negative ? 1 : 0);
  std::int64_t value = 0;
  for (const char character : text) {
    if (character < '0' || character > '9') break;
    value = std::min(value * 10 + (character - '0'), limit);
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

bool IsDecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool BooleanValue(std::string_view text) {
  text = WithoutLeading(text, blanks);
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  text = WithoutLeading(text, "0");
  return !text.empty() && std::string_view("YyTt123456789").find(text[0]) != std::string_view::npos;
}

std::string Trim(std::string_view text) {
  text = WithoutLeading(text, blanks);
  return std::string(text.substr(0, text.find_last_not_of(blanks) + 1));
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string From(std::string_view text, std::size_t index) {
  std::size_t units = 0;
  while (units < index) {
    if (text.empty()) {
      throw std::out_of_range("index " + std::to_string(index) + " is beyond the end of a text of " +
                              std::to_string(units) + " UTF-16 units");
    }
    units += UnitsOfFirst(text);
    text = WithoutFirst(text);
  }
  // An index between the two units of one character leaves half of it, which is no character.
  std::string rest(units > index ? replacementCharacter : "");
  return rest.append(text);
}

std::string_view UpTo(std::string_view text, std::size_t units) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t taken = UnitsOfFirst(rest);
    if (taken > units) break;
    units -= taken;
    rest = WithoutFirst(rest);
  }
  return text.substr(0, text.size() - rest.size());
}

std::string_view UpToBytes(std::string_view text, std::size_t bytes) {
  if (bytes >= text.size()) return text;
  const auto continues = [text](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U; };
  while (bytes > 0 && continues(bytes)) --bytes;
  return text.substr(0, bytes);
}

std::string_view WithoutFirst(std::string_view text) {
  const Sequence sequence = FirstSequence(text);
  return text.substr(sequence.wellFormed ? sequence.length : 1);
}

bool EqualOrUnset(const std::optional<std::string>& left, const std::optional<std::string>& right) {
  return !left || !right || *left == *right;
}

bool IsUtf8(std::string_view bytes) {
  Utf8Check check;
  check.Feed(bytes);
  return check.IsWellFormed();
}

void Utf8Check::Feed(std::string_view piece) {
  if (!begun_.empty()) FeedBegun(piece);
  while (!failed_) {
    piece.remove_prefix(AsciiBlocks(piece));
    if (piece.empty()) return;
    const Sequence sequence = FirstSequence(piece);
    if (sequence.isCut) {
      begun_ = piece;
      return;
    }
    failed_ = !sequence.wellFormed;
    piece.remove_prefix(sequence.length);
  }
}

void Utf8Check::FeedBegun(std::string_view& piece) {
  while (!begun_.empty() && !piece.empty()) {
    begun_ += piece.front();
    piece.remove_prefix(1);
    const Sequence sequence = FirstSequence(begun_);
    if (sequence.isCut) continue;
    failed_ = failed_ || !sequence.wellFormed;
    begun_.clear();
  }
}

std::string ToUtf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Sequence sequence = FirstSequence(bytes);
    text.append(sequence.wellFormed ? bytes.substr(0, sequence.length) : replacementCharacter);
    bytes.remove_prefix(sequence.length);
  }
  return text;
}

bool Contains(std::string_view text, std::string_view needle) {
  return !needle.empty() && text.find(needle) != std::string_view::npos;
}

}  // namespace text
