#pragma once
#include_next <unistd.h>
extern "C" int issetugid();
