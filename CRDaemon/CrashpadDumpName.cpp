#include "CRDaemon/CrashpadDumpName.h"

#include "support/Text.h"

namespace reports {
namespace {

bool IsLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool IsLineBreak(char c) { return c >= '\n' && c <= '\r'; }

// x: a letter or digit; ".": any character but a line break; all else stands for itself.
bool Matches(std::string_view name, std::string_view pattern) {
  for (const char expected : pattern) {
    if (name.empty()) return false;
    const char c = name.front();
    if (expected == '.' ? IsLineBreak(c) : expected == 'x' ? !IsLetterOrDigit(c) : c != expected) return false;
    name = text::WithoutFirst(name);
  }
  return name.empty();
}

}  // namespace

std::optional<DumpKind> KindOfDump(std::string_view name) {
  if (Matches(name, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.dmp.gz")) return DumpKind::compressed;
  if (Matches(name, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.dmp")) return DumpKind::plain;
  return std::nullopt;
}

}  // namespace reports
