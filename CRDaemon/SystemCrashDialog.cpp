#include "CRDaemon/MyDaemon.h"

void MyDaemon::PopulateDictionaryWithWindows() {}

void MyDaemon::WaitForAppleCrashDialog() {}

void MyDaemon::ReleaseWindowDictionary() {}
