// Of the Mac's, what this system has under other names or not at all.
#pragma once
#include_next <fcntl.h>
#define F_FULLFSYNC 51
