#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace reliability {

// Whether the short form was asked for, by "--short" among the program's arguments.
[[nodiscard]] bool IsShort(int count, char* arguments[]);

// How many cases of each kind were tried, and how many held. One thread.
class Figures {
 public:
  // A case that did not hold is named on standard output at once.
  void Count(std::string_view what, std::string_view name, bool held);

  // Prints a line for each kind, in the order of their first cases: "figure: WHAT | TRIED | HELD". The exit status of
  // the program: 0 when something was tried and all of it held.
  [[nodiscard]] int Print() const;

 private:
  struct Figure {
    int tried = 0;
    int held = 0;
  };

  std::vector<std::string> order_;
  std::map<std::string, Figure, std::less<>> figures_;
};

}  // namespace reliability
