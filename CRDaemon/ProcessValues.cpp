#include "CRDaemon/ProcessValues.h"

#include "platform/Users.h"
#include "support/FixedNames.h"
#include "support/Paths.h"

ProcessValues& ProcessWide() {
  static ProcessValues values;
  return values;
}

ProcessValues InitialProcessValues() {
  ProcessValues values;
  values.startDate = platform::Now();
  values.UserLibrary =
      platform::IsRootUser() ? "~" + platform::ConsoleUser().value_or("<none>") + "/Library" : std::string("~/Library");
  values.REPORTS_DIR = paths::ExpandTilde(names::reportsFolder);
  return values;
}
