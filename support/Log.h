#pragma once

#include <string>

// The daemon's own lines in the debug log, under the component "CRDaemon" and with the place of the call.
struct CodePlace {
  const char* file;
  int line;
};

void LogInfo(const std::string& text, CodePlace place = {__builtin_FILE(), __builtin_LINE()});
void LogError(const std::string& text, CodePlace place = {__builtin_FILE(), __builtin_LINE()});
