#include "platform/PropertyList.h"

#include <algorithm>

#include "platform/macos/Objects.h"
#include "platform/posix/PropertyListGuard.h"

namespace platform {
namespace {

// Below its own limits the system's parser recurses as deep as the list nests.
bool IsSafe(std::string_view bytes) {
  if (bytes.starts_with("bplist")) return IsSafeBinaryPropertyList(bytes);
  // The old text format, which has no tags, nests with these.
  const auto opens = std::count(bytes.begin(), bytes.end(), '(') + std::count(bytes.begin(), bytes.end(), '{');
  const bool isXml = bytes.find('<') == bytes.find_first_not_of(" \t\r\n");
  return (isXml || opens <= static_cast<std::ptrdiff_t>(propertyListLevels)) && IsSafeXmlPropertyList(bytes);
}

id Parse(NSData* bytes) {
  @try {
    return [NSPropertyListSerialization propertyListWithData:bytes
                                                     options:NSPropertyListImmutable
                                                      format:nullptr
                                                       error:nullptr];
  } @catch (NSException*) {
    return nil;
  }
}

NSData* Write(id object) {
  @try {
    return [NSPropertyListSerialization dataWithPropertyList:object
                                                      format:NSPropertyListXMLFormat_v1_0
                                                     options:0
                                                       error:nullptr];
  } @catch (NSException*) {
    return nil;
  }
}

}  // namespace

Result<Value> ParsePropertyList(std::string_view bytes) {
  if (bytes.size() > propertyListBytes) return std::errc::file_too_large;
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  if (!IsSafe(bytes)) return std::errc::invalid_argument;
  const Pool pool;
  const id root = Parse([NSData dataWithBytes:bytes.data() length:bytes.size()]);
  auto value = FromObject(root);
  if (!value) return std::errc::invalid_argument;
  return std::move(*value);
}

Result<std::string> WritePropertyList(const Value& value) {
  const Pool pool;
  const id root = ToObject(value);
  NSData* const bytes = root == nil ? nil : Write(root);
  if (bytes == nil) return std::errc::invalid_argument;
  std::string xml(static_cast<const char*>([bytes bytes]), [bytes length]);
  if (xml.size() > propertyListBytes) return std::errc::file_too_large;
  if (!IsSafeXmlPropertyList(xml)) return std::errc::invalid_argument;
  return xml;
}

}  // namespace platform
