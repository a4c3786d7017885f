#pragma once

#include <string>

// The daemon's own lines in the debug log, under the component "CRDaemon" and with the place of the call.
struct CodePlace {
  const char* file = __builtin_FILE();
  int line = __builtin_LINE();
};

void LogInfo(const std::string& text, CodePlace place = CodePlace());
void LogError(const std::string& text, CodePlace place = CodePlace());
