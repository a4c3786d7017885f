#include <string>

#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "platform/Clock.h"
#include "support/FixedNames.h"
#include "support/Log.h"
#include "support/Text.h"

namespace {

constexpr int mostPolls = 60;
constexpr std::chrono::milliseconds pollPause{500};

// An entry without an owner compares equal to the problem reporter.
bool IsOfProblemReporter(const platform::Window& window) {
  return text::EqualOrUnset(window.ownerName, names::problemReporter);
}

bool IsDialogCandidate(const platform::Window& window) {
  const bool untitled = !window.title || window.title->empty();
  return IsOfProblemReporter(window) || (window.ownerName == names::userNotificationCenter && untitled);
}

std::string NextCount(const std::string& count) {
  if (count.empty()) return "1";
  if (count == "1") return "2";
  if (count == "2") return "3";
  return count;
}

}  // namespace

std::vector<platform::Window> MyDaemon::getCGWindowListCopyWindowInfo() {
  return platform::OnScreenWindows().value_or(std::vector<platform::Window>());
}

void MyDaemon::PopulateDictionaryWithWindows() {
  for (const platform::Window& window : getCGWindowListCopyWindowInfo()) {
    if (!IsDialogCandidate(window)) continue;
    std::string& count = windowDictionary[window.number];
    count = NextCount(count);
  }
}

MyDaemon::Text MyDaemon::GetCrashWindowId() {
  int seenOnce = 0;
  Text lastSeenOnce;
  for (const platform::Window& window : getCGWindowListCopyWindowInfo()) {
    if (!IsDialogCandidate(window)) continue;
    const auto census = windowDictionary.find(window.number);
    if (census == windowDictionary.end()) {
      if (IsOfProblemReporter(window)) problemReporterFound = true;
      return window.number;
    }
    if (census->second != "1") continue;
    ++seenOnce;
    lastSeenOnce = window.number;
  }
  return seenOnce < 2 ? lastSeenOnce : Text(names::nothing);
}

bool MyDaemon::GetWindowExists(const Text& number) {
  if (!number) return true;
  for (const platform::Window& window : getCGWindowListCopyWindowInfo()) {
    if (window.number == *number) return true;
  }
  return false;
}

void MyDaemon::WaitForAppleCrashDialog() {
  if (ProcessWide().isSignal) return;
  if (foundWindow == 0) {
    for (int polls = 0; !windowId && polls < mostPolls && !endTask; ++polls) {
      platform::SleepFor(pollPause);
      windowId = GetCrashWindowId();
    }
    if (windowId == names::nothing) windowId.reset();
    foundWindow = 1;
    if (!problemReporterFound) isWindowExist = GetWindowExists(windowId);
  }
  if (windowId) LogError("Apple Crash Dialog Window ID: " + *windowId);
}

void MyDaemon::ReleaseWindowDictionary() {}
