#include "CRDaemon/MyDaemon.h"

void MyDaemon::LogCrashedModuleInfo(const std::string&) {}
