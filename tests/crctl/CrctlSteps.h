#pragma once

#include <string>
#include <vector>

#include "demo/Sandbox.h"
#include "platform/PropertyList.h"

// What one run of crctl came to.
struct Outcome {
  int status = -1;              // its exit status
  std::string output;           // both streams
  platform::Dictionary object;  // of a run with --json: some members of what it printed

  [[nodiscard]] std::string Text(const std::string& member) const;
  [[nodiscard]] platform::Array List(const std::string& member) const;
};

class CrctlSandbox : public demo::Sandbox {
 public:
  [[nodiscard]] Outcome Crctl(std::vector<std::string> arguments) const;
};

// A text member of a dictionary; empty when there is none.
[[nodiscard]] std::string TextOf(const platform::Value& dictionary, const std::string& key);
