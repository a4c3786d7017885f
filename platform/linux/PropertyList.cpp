#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "platform/posix/PropertyListGuard.h"
#include "platform/posix/PropertyListText.h"

namespace platform {
namespace {

using std::chrono::sys_seconds;

constexpr auto uidKey = "CF$UID";  // of the dictionary that is a uid in XML

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;
struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Allocated = std::unique_ptr<T, Free>;

std::string XmlOf(plist_t node) {
  char* text = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(node, &text, &size);
  const Allocated<char> owner(text);
  return text == nullptr ? std::string() : std::string(text, size);
}

// What stands in an element: of numbers and dates, the library tells all only there.
std::string ContentOf(plist_t node, const std::string& element) {
  const std::string xml = XmlOf(node);
  const std::size_t tag = xml.find("<" + element + ">");
  if (tag == std::string::npos) return {};
  const std::size_t begin = tag + element.size() + 2;
  return xml.substr(begin, xml.find('<', begin) - begin);
}

Value Integer(plist_t node) {
  std::uint64_t number = 0;
  plist_get_uint_val(node, &number);
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  // The library keeps a sign apart and does not give it away.
  if (number > most && !ContentOf(node, "integer").starts_with('-')) return {Value::State(number)};
  return {Value::State(static_cast<std::int64_t>(number))};
}

Value Date(plist_t node) {
  const auto time = ParseXmlDate(ContentOf(node, "date")).value_or(sys_seconds());
  const bool fits = time > std::chrono::ceil<std::chrono::seconds>(Time::min()) &&
                    time < std::chrono::floor<std::chrono::seconds>(Time::max());
  return fits ? Value(Value::State(Time(time))) : Value(Value::State(time));
}

Value ToValue(plist_t node);

Value ToArray(plist_t node) {
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const Allocated<void> owner(iterator);
  Array array;
  for (plist_t item = nullptr; plist_array_next_item(node, iterator, &item), item != nullptr;) {
    array.push_back(ToValue(item));
  }
  return {Value::State(std::move(array))};
}

Value ToDictionary(plist_t node) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const Allocated<void> owner(iterator);
  Dictionary::Members members;
  while (true) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    const Allocated<char> keyOwner(key);
    if (item == nullptr || key == nullptr) break;
    members.emplace_back(key, ToValue(item));
  }
  Dictionary dictionary(std::move(members));
  const Value* uid = dictionary.size() == 1 ? dictionary.Find(uidKey) : nullptr;
  if (uid == nullptr) return {Value::State(std::move(dictionary))};
  if (const auto* number = uid->As<std::uint64_t>()) return {Value::State(Uid{*number})};
  if (const auto* number = uid->As<std::int64_t>(); number != nullptr && *number >= 0) {
    return {Value::State(Uid{static_cast<std::uint64_t>(*number)})};
  }
  return {Value::State(std::move(dictionary))};
}

Value ToValue(plist_t node) {
  std::uint64_t size = 0;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return {Value::State(plist_bool_val_is_true(node) != 0)};
    case PLIST_UINT:
      return Integer(node);
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return {Value::State(number)};
    }
    case PLIST_STRING: {
      const char* text = plist_get_string_ptr(node, &size);
      return {std::string(text == nullptr ? "" : text, text == nullptr ? 0 : size)};
    }
    case PLIST_DATE:
      return Date(node);
    case PLIST_DATA: {
      const char* bytes = plist_get_data_ptr(node, &size);
      return {Value::State(Data{bytes == nullptr ? std::string() : std::string(bytes, size)})};
    }
    case PLIST_UID: {
      std::uint64_t number = 0;
      plist_get_uid_val(node, &number);
      return {Value::State(Uid{number})};
    }
    case PLIST_ARRAY:
      return ToArray(node);
    case PLIST_DICT:
      return ToDictionary(node);
    default:
      return {};
  }
}

// Builds the library's tree of a value. What the library cannot write faithfully gets a stand-in there: a text with a
// control character, which no real text keeps, and the number of the element that is to replace it in the XML.
class Writer {
 public:
  Result<std::string> Write(const Value& value) {
    const Node root(Build(value));
    if (!root) return std::errc::invalid_argument;
    return WithElements(XmlOf(root.get()));
  }

  // A null pointer: it holds a null, or nests too deeply.
  plist_t operator()(Null) { return nullptr; }
  plist_t operator()(bool truth) { return plist_new_bool(truth ? 1 : 0); }
  plist_t operator()(std::int64_t number) { return plist_new_uint(static_cast<std::uint64_t>(number)); }
  plist_t operator()(std::uint64_t number) { return StandIn("integer", std::to_string(number)); }
  plist_t operator()(double number) {
    return number == 0 && std::signbit(number) ? StandIn("real", "-0.0") : plist_new_real(number);
  }
  plist_t operator()(const std::string& text) { return plist_new_string(XmlText(text).c_str()); }
  plist_t operator()(Time time) { return (*this)(std::chrono::floor<std::chrono::seconds>(time)); }
  plist_t operator()(sys_seconds time) { return StandIn("date", XmlDate(time)); }
  plist_t operator()(const Data& data) { return plist_new_data(data.bytes.data(), data.bytes.size()); }
  plist_t operator()(Uid uid) {
    const plist_t node = plist_new_dict();
    plist_dict_set_item(node, uidKey, (*this)(uid.number));
    return node;
  }
  plist_t operator()(const Array& array) {
    Node node(plist_new_array());
    for (const Value& value : array) {
      const plist_t item = Build(value);
      if (item == nullptr) return nullptr;
      plist_array_append_item(node.get(), item);
    }
    return node.release();
  }
  plist_t operator()(const Dictionary& dictionary) {
    Node node(plist_new_dict());
    for (const auto& [key, value] : dictionary) {
      const plist_t item = Build(value);
      if (item == nullptr) return nullptr;
      plist_dict_set_item(node.get(), XmlText(key).c_str(), item);
    }
    return node.release();
  }

 private:
  static constexpr auto standInBegin = "<string>\x01";
  static constexpr auto standInEnd = "</string>";

  plist_t Build(const Value& value) {
    if (level_ > propertyListLevels) return nullptr;
    ++level_;
    const plist_t node = std::visit(*this, value.state());
    --level_;
    return node;
  }

  plist_t StandIn(const std::string& element, const std::string& content) {
    std::string text = "\x01" + std::to_string(elements_.size());
    elements_.push_back("<" + element + ">" + content + "</" + element + ">");
    return plist_new_string(text.c_str());
  }

  [[nodiscard]] std::string WithElements(const std::string& xml) const {
    const std::string_view begin = standInBegin;
    const std::string_view end = standInEnd;
    std::string result;
    std::size_t copied = 0;
    for (std::size_t at = 0; (at = xml.find(begin, copied)) != std::string::npos;) {
      result.append(xml, copied, at - copied);
      std::size_t index = 0;
      const auto parsed = std::from_chars(xml.data() + at + begin.size(), xml.data() + xml.size(), index);
      result += elements_.at(index);
      copied = static_cast<std::size_t>(parsed.ptr - xml.data()) + end.size();
    }
    return result.append(xml, copied);
  }

  std::vector<std::string> elements_;
  std::size_t level_ = 0;
};

}  // namespace

Result<Value> ParsePropertyList(std::string_view bytes) {
  if (bytes.size() > propertyListBytes) return std::errc::file_too_large;
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  plist_t parsed = nullptr;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  if (plist_is_binary(bytes.data(), size) != 0) {
    if (IsSafeBinaryPropertyList(bytes)) plist_from_bin(bytes.data(), size, &parsed);
  } else if (IsSafeXmlPropertyList(bytes)) {
    plist_from_xml(bytes.data(), size, &parsed);
  }
  const Node root(parsed);
  if (!root) return std::errc::invalid_argument;
  return ToValue(root.get());
}

Result<std::string> WritePropertyList(const Value& value) {
  auto xml = Writer().Write(value);
  if (!xml) return xml;
  if (xml->size() > propertyListBytes) return std::errc::file_too_large;
  if (!IsSafeXmlPropertyList(*xml)) return std::errc::invalid_argument;
  return xml;
}

}  // namespace platform
