#include "CRDaemon/CrashReporterPreferences.h"
#include "CRDaemon/MyDaemon.h"
#include "CRDaemon/ProcessValues.h"
#include "support/FixedNames.h"
#include "support/Text.h"

namespace {

bool SendsWithoutPrompt(const MyDaemon& daemon) { return text::IntegerValue(daemon.initValue.value_or("")) == 1; }

bool AlwaysSends() {
  const auto values = preferences::Read();
  const platform::Value* choice = values ? values->Find(names::alwaysNeverSend) : nullptr;
  return choice != nullptr && preferences::IntegerOf(*choice) == 1;
}

}  // namespace

bool MyDaemon::shouldSignalDialogBeShown() const {
  return !ProcessWide().isSignal || AlwaysSends() || SendsWithoutPrompt(*this) || showCRDialogForSignal == "1";
}

// Throttling outranks everything; only sending without prompt outranks the user's "never".
bool MyDaemon::shouldInitMCRApp() const {
  if (ProcessWide().disableCrashReporting == "1") return false;
  if (isCRDisabled() && !SendsWithoutPrompt(*this)) return false;
  return shouldSignalDialogBeShown();
}
