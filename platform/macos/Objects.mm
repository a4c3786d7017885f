#include "platform/macos/Objects.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <variant>

#include "platform/posix/PropertyListGuard.h"
#include "platform/posix/PropertyListText.h"

namespace platform {
namespace {

using std::chrono::seconds;
using std::chrono::sys_seconds;

NSString* const uidKey = @"CF$UID";  // of the dictionary that is a uid in XML

// Builds the object of a value, or nil.
class Builder {
 public:
  id Build(const Value& value) {
    if (level_ > propertyListLevels) return nil;
    ++level_;
    const id object = std::visit(*this, value.state());
    --level_;
    return object;
  }

  id operator()(Null) { return nil; }
  id operator()(bool truth) { return [NSNumber numberWithBool:truth ? YES : NO]; }
  id operator()(std::int64_t number) { return [NSNumber numberWithLongLong:number]; }
  id operator()(std::uint64_t number) { return [NSNumber numberWithUnsignedLongLong:number]; }
  id operator()(double number) { return [NSNumber numberWithDouble:number]; }
  id operator()(const std::string& text) { return ToText(XmlText(text)); }
  id operator()(Time time) { return (*this)(std::chrono::floor<seconds>(time)); }
  id operator()(sys_seconds time) {
    return [NSDate dateWithTimeIntervalSince1970:static_cast<double>(time.time_since_epoch().count())];
  }
  id operator()(const Data& data) { return [NSData dataWithBytes:data.bytes.data() length:data.bytes.size()]; }
  id operator()(Uid uid) { return [NSDictionary dictionaryWithObject:(*this)(uid.number) forKey:uidKey]; }
  id operator()(const Array& array) {
    NSMutableArray* items = [NSMutableArray arrayWithCapacity:array.size()];
    for (const Value& value : array) {
      const id item = Build(value);
      if (item == nil) return nil;
      [items addObject:item];
    }
    return items;
  }
  id operator()(const Dictionary& dictionary) {
    NSMutableDictionary* items = [NSMutableDictionary dictionaryWithCapacity:dictionary.size()];
    for (const auto& [key, value] : dictionary) {
      const id item = Build(value);
      if (item == nil) return nil;
      [items setObject:item forKey:ToText(XmlText(key))];
    }
    return items;
  }

 private:
  std::size_t level_ = 0;
};

std::optional<Value> FromObject(id object, std::size_t level);

Value FromNumber(NSNumber* number) {
  // A truth value is an object of a class of its own.
  if ([number isKindOfClass:[[NSNumber numberWithBool:YES] class]]) return {Value::State([number boolValue] == YES)};
  if (std::strchr("fd", [number objCType][0]) != nullptr) return {Value::State([number doubleValue])};
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  const std::uint64_t bits = [number unsignedLongLongValue];
  const bool isPositive = [number compare:[NSNumber numberWithInt:0]] == NSOrderedDescending;
  if (isPositive && bits > most) return {Value::State(bits)};
  return {Value::State(std::int64_t{[number longLongValue]})};
}

Value FromDate(NSDate* date) {
  // Far beyond what a calendar knows, and what an integer can count.
  constexpr double last = 1e15;
  const double interval = std::clamp([date timeIntervalSince1970], -last, last);
  const double whole = std::floor(interval);
  const sys_seconds time{seconds(static_cast<std::int64_t>(whole))};
  const bool fits = time > std::chrono::ceil<seconds>(Time::min()) && time < std::chrono::floor<seconds>(Time::max());
  if (!fits) return {Value::State(time)};
  const auto fraction = std::chrono::nanoseconds(std::llround((interval - whole) * 1e9));
  return {Value::State(Time(time) + fraction)};
}

std::optional<Value> FromArray(NSArray* objects, std::size_t level) {
  Array array;
  for (id object in objects) {
    auto value = FromObject(object, level);
    if (!value) return std::nullopt;
    array.push_back(std::move(*value));
  }
  return Value(Value::State(std::move(array)));
}

std::optional<Value> FromDictionary(NSDictionary* objects, std::size_t level) {
  NSArray* const keys = [objects allKeys];
  for (id key in keys) {
    if (![key isKindOfClass:[NSString class]]) return std::nullopt;
  }
  Dictionary dictionary;
  for (NSString* key in [keys sortedArrayUsingSelector:@selector(compare:)]) {
    auto name = FromText(key);
    auto value = FromObject([objects objectForKey:key], level);
    if (!name || !value) return std::nullopt;
    dictionary.Set(std::move(*name), std::move(*value));
  }
  const Value* uid = dictionary.size() == 1 ? dictionary.Find("CF$UID") : nullptr;
  const auto* number = uid == nullptr ? nullptr : uid->As<std::int64_t>();
  if (number != nullptr && *number >= 0) return Value(Value::State(Uid{static_cast<std::uint64_t>(*number)}));
  return Value(Value::State(std::move(dictionary)));
}

std::optional<Value> FromObject(id object, std::size_t level) {
  if (level > propertyListLevels) return std::nullopt;
  if ([object isKindOfClass:[NSString class]]) {
    auto text = FromText(object);
    return text ? std::optional(Value(std::move(*text))) : std::nullopt;
  }
  if ([object isKindOfClass:[NSNumber class]]) return FromNumber(object);
  if ([object isKindOfClass:[NSDate class]]) return FromDate(object);
  if ([object isKindOfClass:[NSData class]]) {
    return Value(Value::State(Data{std::string(static_cast<const char*>([object bytes]), [object length])}));
  }
  if ([object isKindOfClass:[NSArray class]]) return FromArray(object, level + 1);
  if ([object isKindOfClass:[NSDictionary class]]) return FromDictionary(object, level + 1);
  return std::nullopt;
}

}  // namespace

NSString* ToText(std::string_view bytes) {
  NSString* const text = [[[NSString alloc] initWithBytes:bytes.data()
                                                   length:bytes.size()
                                                 encoding:NSUTF8StringEncoding] autorelease];
  return text != nil ? text : ToText(XmlText(bytes));
}

std::optional<std::string> FromText(NSString* text) {
  NSData* const bytes = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:NO];
  if (bytes == nil) return std::nullopt;
  return std::string(static_cast<const char*>([bytes bytes]), [bytes length]);
}

id ToObject(const Value& value) { return Builder().Build(value); }

std::optional<Value> FromObject(id object) { return FromObject(object, 0); }

}  // namespace platform
