#pragma once

#include <string>

#include "demo/Sandbox.h"

// Without a digit: a name that happens to hold the host's process id would be its own signal report.
inline const std::string reportName = "Photo-Darkroom.ips";

// The host dies of a segmentation fault, the system writes its report, and the daemon does all it has to.
void CrashWithSystemReport(const demo::Sandbox& sandbox, demo::HostRun& run, const std::string& name = reportName);

// The daemon ended of itself, with status 0.
void ExpectQuietEnd(demo::HostRun& run);
