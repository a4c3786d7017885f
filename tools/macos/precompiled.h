// What most sources include, compiled once for the second architecture. The first is compiled without it, so that a
// missing #include shows.
#pragma once

#ifdef __OBJC__
#import <AppKit/AppKit.h>
#endif

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "platform/PropertyList.h"
