#include "platform/posix/PropertyListGuard.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace platform {
namespace {

class XmlScan {
 public:
  explicit XmlScan(std::string_view text) : text_(text) {}

  bool IsSafe() {
    if (text_.size() > propertyListBytes || text_.find('\0') != std::string_view::npos) return false;
    while (true) {
      const std::size_t tag = text_.find('<', position_);
      if (!SpendText(text_.substr(position_, tag - position_))) return false;
      if (tag == std::string_view::npos) return true;
      position_ = tag + 1;
      if (!PassTag()) return false;
    }
  }

 private:
  // libplist moves the rest of a text forward for each entity in it.
  static constexpr std::uint64_t movedBytesLimit = std::uint64_t{1} << 34U;

  bool SpendText(std::string_view text) {
    movedBytes_ += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '&')) * text.size();
    return movedBytes_ <= movedBytesLimit;
  }

  bool PassTag() {
    const std::string_view rest = text_.substr(position_);
    if (rest.starts_with("!--")) return PassUntil("-->", 3);
    if (rest.starts_with("![CDATA[")) return PassUntil("]]>", 8);
    if (rest.starts_with('?')) return PassProcessingInstruction();
    if (rest.starts_with('!')) return PassDocumentType();
    return PassElementTag();
  }

  bool PassUntil(std::string_view end, std::size_t skip) {
    const std::size_t found = text_.find(end, position_ + skip);
    position_ = found + end.size();
    return found != std::string_view::npos;
  }

  // The first of `characters` that does not stand between double quotes.
  [[nodiscard]] std::size_t FindOutsideQuotes(std::string_view characters, std::size_t from) const {
    while (from < text_.size() && characters.find(text_[from]) == std::string_view::npos) {
      if (text_[from] == '"') from = text_.find('"', from + 1);
      if (from == std::string_view::npos) return from;
      ++from;
    }
    return from < text_.size() ? from : std::string_view::npos;
  }

  bool PassProcessingInstruction() {
    for (std::size_t mark = position_;; ++mark) {
      mark = FindOutsideQuotes("?", mark);
      if (mark == std::string_view::npos) return false;
      if (text_.substr(mark).starts_with("?>")) {
        position_ = mark + 2;
        return true;
      }
    }
  }

  // One with declarations of its own is no property list that anybody writes.
  bool PassDocumentType() {
    const std::size_t end = FindOutsideQuotes("[>", position_);
    position_ = end + 1;
    return end != std::string_view::npos && text_[end] == '>';
  }

  bool PassElementTag() {
    const std::size_t nameEnd = text_.find_first_of(" \r\n\t<>", position_);
    const std::size_t end = nameEnd == std::string_view::npos ? nameEnd : FindOutsideQuotes("<>", nameEnd);
    if (end == std::string_view::npos || text_[end] == '<') return false;
    const bool isEmpty = text_[end - 1] == '/';
    std::string_view name = text_.substr(position_, nameEnd - position_);
    if (isEmpty && nameEnd == end) name.remove_suffix(1);
    position_ = end + 1;
    return Count(name, isEmpty);
  }

  bool Count(std::string_view name, bool isEmpty) {
    const bool closes = name.starts_with('/');
    if (closes) name.remove_prefix(1);
    const bool isContainer = name == "array" || name == "dict";
    if (closes) {
      // One too many is an error to libplist, which then builds nothing more.
      if (isContainer && level_ > 0) --level_;
      return true;
    }
    if (++objects_ > propertyListObjects) return false;
    if (!isContainer) return true;
    if (level_ == propertyListLevels) return false;
    if (!isEmpty) ++level_;
    return true;
  }

  std::string_view text_;
  std::size_t position_ = 0;
  std::size_t level_ = 0;
  std::size_t objects_ = 0;
  std::uint64_t movedBytes_ = 0;
};

class BinaryWalk {
 public:
  explicit BinaryWalk(std::string_view bytes) : bytes_(bytes) {}

  bool IsSafe() {
    if (bytes_.size() > propertyListBytes || bytes_.size() < headerBytes + trailerBytes) return false;
    const std::size_t trailer = bytes_.size() - trailerBytes;
    offsetBytes_ = Byte(trailer + 6);
    referenceBytes_ = Byte(trailer + 7);
    count_ = Number(trailer + 8, 8);
    table_ = Number(trailer + 24, 8);
    if (offsetBytes_ < 1 || offsetBytes_ > 8 || referenceBytes_ < 1 || referenceBytes_ > 8) return false;
    if (table_ < headerBytes || table_ > trailer || count_ > (trailer - table_) / offsetBytes_) return false;
    return Visit(Number(trailer + 16, 8), 0);
  }

 private:
  static constexpr std::size_t headerBytes = 8;
  static constexpr std::size_t trailerBytes = 32;
  // The years 1 to 9999, in seconds from 2001; libplist counts the years of a date one by one.
  static constexpr double firstDate = -63'113'904'000.0;
  static constexpr double lastDate = 252'423'993'599.0;

  enum Kind : unsigned {
    simple = 0,
    integer = 1,
    real = 2,
    date = 3,
    data = 4,
    ascii = 5,
    utf16 = 6,
    uid = 8,
    array = 10,
    set = 12,
    dictionary = 13
  };
  // An object: its kind, and where its `size` bytes, units or members begin.
  struct Object {
    unsigned kind;
    std::uint64_t size;
    std::uint64_t position;
  };

  [[nodiscard]] unsigned Byte(std::uint64_t position) const { return static_cast<unsigned char>(bytes_[position]); }

  [[nodiscard]] std::uint64_t Number(std::uint64_t position, std::uint64_t size) const {
    std::uint64_t number = 0;
    for (std::uint64_t i = 0; i < size; ++i) number = number << 8U | Byte(position + i);
    return number;
  }

  // Objects end where the table of their offsets begins.
  [[nodiscard]] bool Fits(std::uint64_t position, std::uint64_t size) const {
    return position <= table_ && size <= table_ - position;
  }

  [[nodiscard]] bool Read(std::uint64_t index, Object& object) const {
    if (index >= count_) return false;
    const std::uint64_t offset = Number(table_ + index * offsetBytes_, offsetBytes_);
    if (!Fits(offset, 1)) return false;
    object = {Byte(offset) >> 4U, Byte(offset) & 15U, offset + 1};
    const bool isCounted = object.kind == data || object.kind == ascii || object.kind == utf16 ||
                           object.kind == array || object.kind == set || object.kind == dictionary;
    if (!isCounted || object.size < 15) return true;
    if (!Fits(object.position, 1)) return false;
    const unsigned marker = Byte(object.position++);
    const std::uint64_t sizeBytes = std::uint64_t{1} << (marker & 15U);
    if (marker >> 4U != integer || sizeBytes > 8 || !Fits(object.position, sizeBytes)) return false;
    object.size = Number(object.position, sizeBytes);
    object.position += sizeBytes;
    return true;
  }

  bool Visit(std::uint64_t index, std::size_t level) {
    Object object{};
    if (++objects_ > propertyListObjects || !Read(index, object)) return false;
    switch (object.kind) {
      case array:
      case set:
      case dictionary:
        return level < propertyListLevels && VisitMembers(object, level + 1);
      case data:
      case ascii:
      case utf16:
        return PassBytes(object);
      default:
        return IsSoundScalar(object);
    }
  }

  bool VisitMembers(const Object& object, std::size_t level) {
    const std::uint64_t keys = object.kind == dictionary ? object.size : 0;
    // First, so that nothing below can overflow.
    if (object.size > propertyListObjects || !Fits(object.position, (keys + object.size) * referenceBytes_)) {
      return false;
    }
    for (std::uint64_t i = 0; i < keys + object.size; ++i) {
      const std::uint64_t index = Number(object.position + i * referenceBytes_, referenceBytes_);
      if (i < keys && !IsText(index)) return false;
      if (!Visit(index, level)) return false;
    }
    return true;
  }

  [[nodiscard]] bool IsText(std::uint64_t index) const {
    Object object{};
    return Read(index, object) && (object.kind == ascii || object.kind == utf16);
  }

  bool PassBytes(const Object& object) {
    const std::uint64_t unit = object.kind == utf16 ? 2 : 1;
    if (object.size > bytes_.size() || !Fits(object.position, object.size * unit)) return false;
    unfoldedBytes_ += object.size * unit;
    if (unfoldedBytes_ > propertyListBytes) return false;
    if (object.kind == data) return true;
    for (std::uint64_t i = 0; i < object.size; ++i) {
      if (Number(object.position + i * unit, unit) == 0) return false;
    }
    return true;
  }

  [[nodiscard]] bool IsSoundScalar(const Object& object) const {
    const auto [kind, size, position] = object;
    const std::uint64_t bytes = kind == uid ? size + 1 : std::uint64_t{1} << size;
    switch (kind) {
      case simple:
        return size == 8 || size == 9;
      case integer:  // of 16 bytes, libplist reads the lower half
        return Fits(position, bytes) && (size <= 3 || (size == 4 && Number(position, 8) == 0));
      case real:
        return (size == 2 || size == 3) && Fits(position, bytes);
      case date: {
        if (size != 3 || !Fits(position, bytes)) return false;
        const auto seconds = std::bit_cast<double>(Number(position, bytes));
        return seconds >= firstDate && seconds <= lastDate;
      }
      case uid:
        return bytes <= 8 && Fits(position, bytes) && Number(position, bytes) <= UINT32_MAX;
      default:
        return false;
    }
  }

  std::string_view bytes_;
  std::uint64_t offsetBytes_ = 0;
  std::uint64_t referenceBytes_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t table_ = 0;
  std::size_t objects_ = 0;
  std::uint64_t unfoldedBytes_ = 0;
};

}  // namespace

bool IsSafeXmlPropertyList(std::string_view text) { return XmlScan(text).IsSafe(); }

bool IsSafeBinaryPropertyList(std::string_view bytes) { return BinaryWalk(bytes).IsSafe(); }

}  // namespace platform
