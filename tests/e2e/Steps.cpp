#include "tests/e2e/Steps.h"

#include <gtest/gtest.h>

void CrashWithSystemReport(const demo::Sandbox& sandbox, demo::HostRun& run, const std::string& name) {
  run.host.Say("crash");
  ASSERT_TRUE(run.host.AwaitEnd());
  sandbox.Put(sandbox.Reports() / name, demo::SystemReport(run.host.Id()));
  ExpectQuietEnd(run);
}

void ExpectQuietEnd(demo::HostRun& run) { EXPECT_EQ(run.daemon.AwaitEnd(), 0) << demo::ContentOf(run.logFile); }
