#pragma once

#include <string>

// A fresh random GUID: 36 characters, 8-4-4-4-12 upper-case hexadecimal digits.
[[nodiscard]] std::string NewGuid();
