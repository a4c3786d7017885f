#pragma once
#include_next <stdio.h>
#define RENAME_EXCL RENAME_NOREPLACE
#define renameatx_np renameat2
