#pragma once

#import <Foundation/Foundation.h>

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

// Between the objects of the system's frameworks and the values of this project. Objects returned belong to the
// innermost pool.
namespace platform {

// Releases, when it goes, what was left to it meanwhile. Every entry point has one of its own: the threads of our
// callers have none.
class Pool {
 public:
  Pool() : pool_([[NSAutoreleasePool alloc] init]) {}
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool() { [pool_ drain]; }

 private:
  NSAutoreleasePool* pool_;
};

// A Core Foundation object as the Foundation object that it also is, and the reverse.
template <typename Class>
Class* Bridged(CFTypeRef object) {
  return static_cast<Class*>(const_cast<void*>(object));
}
inline CFStringRef Bridged(NSString* text) { return static_cast<CFStringRef>(static_cast<const void*>(text)); }

// Of a function that gives its result to the caller to release: leaves that to the pool.
template <typename Class>
Class* Owned(CFTypeRef object) {
  return [Bridged<Class>(object) autorelease];
}

// What is not UTF-8 becomes U+FFFD.
[[nodiscard]] NSString* ToText(std::string_view bytes);

// UTF-8. None for nil, and when a character cannot be converted (half of a surrogate pair).
[[nodiscard]] std::optional<std::string> FromText(NSString* text);

// Nil for what no property list can hold: a null anywhere in it, and more than 128 levels. Dates in whole seconds.
[[nodiscard]] id ToObject(const Value& value);

// The keys of a dictionary come sorted, since the system keeps no order. None when any of it is of no kind of Value,
// and for more than 128 levels.
[[nodiscard]] std::optional<Value> FromObject(id object);

}  // namespace platform
