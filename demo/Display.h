#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "demo/Program.h"

namespace demo {

// A copy of SampleWindow under a name of its own.
struct SampleWindows {
  Program program;
  std::vector<std::string> numbers;
  std::filesystem::path output;
};

// An X server without a screen, on a display of its own, and the windows on it. All of it goes with this object.
class Display {
 public:
  Display();
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;
  ~Display();

  // For the variable DISPLAY.
  [[nodiscard]] const std::string& Name() const { return name_; }

  // A stopped server accepts connections and says nothing.
  void Stop() const;
  void Continue() const;
  void Kill() { server_.reset(); }

  // Returns once it manages the windows.
  void StartWindowManager();
  // It dies without clearing up.
  void KillWindowManager() { manager_.reset(); }

  // Returns once its windows are asked for.
  [[nodiscard]] SampleWindows Show(const std::string& owner, const std::vector<std::string>& arguments);

 private:
  [[nodiscard]] std::filesystem::path NextOutput();

  std::filesystem::path folder_;  // the programs and what they print; a home without settings
  std::map<std::string, std::string> environment_;
  std::string name_;
  int programs_ = 0;
  std::optional<Program> server_;
  std::optional<Program> manager_;
};

}  // namespace demo
