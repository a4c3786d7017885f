#include "reliability/Figures.h"

#include <algorithm>
#include <iostream>

namespace reliability {

bool IsShort(int count, char* arguments[]) {
  return std::any_of(arguments, arguments + count,
                     [](const char* argument) { return argument == std::string_view("--short"); });
}

void Figures::Count(std::string_view what, std::string_view name, bool held) {
  const auto [figure, isNew] = figures_.try_emplace(std::string(what));
  if (isNew) order_.emplace_back(what);
  ++figure->second.tried;
  figure->second.held += held ? 1 : 0;
  if (!held) std::cout << what << ": did not hold: " << name << std::endl;
}

int Figures::Print() const {
  bool allHeld = !order_.empty();
  for (const std::string& what : order_) {
    const Figure& figure = figures_.at(what);
    std::cout << "figure: " << what << " | " << figure.tried << " | " << figure.held << '\n';
    allHeld = allHeld && figure.held == figure.tried;
  }
  std::cout << std::flush;
  return allHeld ? 0 : 1;
}

}  // namespace reliability
