#pragma once

#include <ctime>
#include <string>

// The host's own handler of signals, as an application has one: it writes a report of the signal where CRDaemon looks
// for it. Only the time and the signal are put in at the last moment; in the handler itself nothing is allocated.
namespace sample {

// Writes the report at the next SIGSEGV or SIGTERM, then lets it kill this process, which was launched at that time.
// Once a process.
void ReportSignals(const std::string& application, const std::string& version, std::time_t launch);

}  // namespace sample
