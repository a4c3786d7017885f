#include "support/JsonPlain.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace json {

namespace {

// So many digits are an integer of 64 bits, whatever they are, and never a number that overflows.
constexpr std::ptrdiff_t shortDigits = 18;

constexpr std::uint64_t InEachByte(unsigned char byte) { return 0x0101010101010101U * byte; }

// The highest bit of each byte that a text may not hold as it is, and of no byte before the first of these: the quote,
// the backslash, control characters and all beyond ASCII.
std::uint64_t Marks(std::uint64_t bytes) {
  // Takes the quote next to the control characters, and what stood there away. All beyond ASCII keeps its highest bit
  // through one of the subtractions at least.
  const std::uint64_t moved = bytes ^ InEachByte('"' ^ ' ');
  const std::uint64_t upToQuote = moved - InEachByte(' ' + 1);
  const std::uint64_t backslash = (moved ^ InEachByte('\\' ^ '"' ^ ' ')) - InEachByte(1);
  return (upToQuote | backslash) & InEachByte(0x80);
}

bool IsBlank(char character) {
  // Most are none.
  return static_cast<unsigned char>(character) <= ' ' &&
         (character == ' ' || character == '\n' || character == '\r' || character == '\t');
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Each operation looks from `at` on, where the text has not ended, and returns the place behind what it is named for.
// Null: it is not there, not whole or not plain. The last character of the text is a comma, so that only behind a comma
// an operation has to see whether it has ended.
class Scanner {
 public:
  explicit Scanner(const char* end) : end_(end) {}

  const char* Value(const char* at, std::size_t levels) const {
    at = Next(at);
    switch (*at) {
      case '"':
        return Text(at);
      case '{':
        return levels > 0 ? Object(at, levels - 1) : nullptr;
      case '[':
        return levels > 0 ? Array(at, levels - 1) : nullptr;
      case 't':
        return Word(at, "true");
      case 'f':
        return Word(at, "false");
      case 'n':
        return Word(at, "null");
      default:
        return Integer(at);
    }
  }

  // The first character that is no blank.
  static const char* Next(const char* at) {
    while (IsBlank(*at)) ++at;
    return at;
  }

 private:
  const char* Object(const char* at, std::size_t levels) const {
    at = Next(at + 1);
    if (*at == '}') return at + 1;
    while (*at == '"') {
      at = Text(at);
      if (at == nullptr) return nullptr;
      at = Next(at);
      if (*at != ':') return nullptr;
      at = Value(at + 1, levels);
      if (at == nullptr) return nullptr;
      at = Next(at);
      if (*at == '}') return at + 1;
      if (*at != ',' || ++at == end_) return nullptr;
      at = Next(at);
    }
    return nullptr;
  }

  const char* Array(const char* at, std::size_t levels) const {
    at = Next(at + 1);
    if (*at == ']') return at + 1;
    for (;;) {
      at = Value(at, levels);
      if (at == nullptr) return nullptr;
      at = Next(at);
      if (*at == ']') return at + 1;
      if (*at != ',' || ++at == end_) return nullptr;
    }
  }

  const char* Text(const char* at) const {
    for (++at; (at = Unmarked(at)) != nullptr; at += 2) {
      if (*at == '"') return at + 1;
      if (*at != '\\' || std::string_view("\"\\/bfnrt").find(at[1]) == std::string_view::npos) return nullptr;
    }
    return nullptr;
  }

  // The first character of a text with a mark. What is so near the end is as well left to the parser.
  const char* Unmarked(const char* at) const {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t marks = 0;
    for (std::uint64_t bytes = 0; end_ - at > static_cast<std::ptrdiff_t>(sizeof bytes); at += sizeof bytes) {
      std::memcpy(&bytes, at, sizeof bytes);
      if ((marks = Marks(bytes)) != 0) break;
    }
    if (marks == 0) return nullptr;
    // To count the zeros would take longer: all that follows waits for a count, but not for a branch foreseen.
    for (; (marks & 0x80U) == 0; marks >>= 8U) ++at;
    return at;
  }

  const char* Word(const char* at, std::string_view word) const {
    return std::string_view(at, end_).starts_with(word) ? at + word.size() : nullptr;
  }

  static const char* Integer(const char* at) {
    if (*at == '-') ++at;
    const char* digits = at;
    while (IsDigit(*at)) ++at;
    const std::ptrdiff_t count = at - digits;
    return count > 0 && count <= shortDigits && (*digits != '0' || count == 1) ? at : nullptr;
  }

  const char* end_;
};

}  // namespace

std::size_t PlainElements(std::string_view text) {
  const char* whole = text.data();
  const char* end = whole + (text.rfind(',') + 1);
  const Scanner scanner(end);
  while (whole != end) {
    const char* at = scanner.Value(whole, plainLevels);
    if (at == nullptr) break;
    at = Scanner::Next(at);
    if (*at != ',') break;
    whole = at + 1;
  }
  return static_cast<std::size_t>(whole - text.data());
}

}  // namespace json
