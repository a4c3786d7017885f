#include "tools/crctl/Printable.h"

#include <algorithm>

#include "support/Text.h"

namespace crctl {
namespace {

constexpr unsigned char del = 0x7F;
// In UTF-8 the characters U+0080 to U+009F are this byte and one below the other.
constexpr unsigned char firstOfC1 = 0xC2;
constexpr unsigned char endOfC1 = 0xA0;

bool IsPlain(char character) { return character >= ' ' && static_cast<unsigned char>(character) < del; }

std::string Hexadecimal(unsigned char byte) {
  constexpr char digits[] = "0123456789abcdef";
  return {digits[byte >> 4U], digits[byte & 15U]};
}

}  // namespace

std::string Printable(std::string_view text, LineBreaks lineBreaks) {
  std::string printable;
  while (!text.empty()) {
    const auto plainEnd = std::find_if_not(text.begin(), text.end(), IsPlain);
    const auto plainBytes = static_cast<std::size_t>(plainEnd - text.begin());
    printable += text.substr(0, plainBytes);
    text.remove_prefix(plainBytes);
    if (text.empty()) break;

    const std::string_view rest = text::WithoutFirst(text);
    const std::string_view character = text.substr(0, text.size() - rest.size());
    const auto last = static_cast<unsigned char>(character.back());
    const bool isC1 = character.size() == 2 && static_cast<unsigned char>(character[0]) == firstOfC1 && last < endOfC1;
    const bool isKept = character == "\n" && lineBreaks == LineBreaks::kept;
    if (!isKept && (last < ' ' || last == del || isC1)) {
      printable += "\\u00" + Hexadecimal(last);
    } else if (!text::IsUtf8(character)) {
      printable += "\\x" + Hexadecimal(last);
    } else {
      printable += character;
    }
    text = rest;
  }
  return printable;
}

}  // namespace crctl
