#include "tools/crctl/Answer.h"

#include "tools/crctl/Printable.h"

namespace crctl {

std::string Line(const std::string& text) { return Printable(text) + "\n"; }

Answer Failed(const std::string& why) { return {.text = {}, .json = {{"error", why}}, .error = why, .isWell = false}; }

std::string Count(std::size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string Duration(std::chrono::nanoseconds duration) {
  constexpr long minute = 60;
  constexpr long hour = 60 * minute;
  constexpr long day = 24 * hour;
  const long seconds = std::chrono::duration_cast<std::chrono::duration<long>>(duration).count();
  if (seconds < 2 * minute) return std::to_string(seconds) + " s";
  if (seconds < 2 * hour) return std::to_string(seconds / minute) + " min";
  if (seconds < 2 * day) return std::to_string(seconds / hour) + " h";
  return std::to_string(seconds / day) + " days";
}

}  // namespace crctl
