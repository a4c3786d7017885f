#include "CRDaemon/MyDaemon.h"

void MyDaemon::SetCrashPadDumpFile() {}

bool MyDaemon::IsCrashPadEnabled() const { return crashPadDumpFile != ""; }

void MyDaemon::removeCrashPadDumpDirectory() {}
