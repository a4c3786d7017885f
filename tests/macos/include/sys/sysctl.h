// As much of the Mac's process table as is asked for; see Fakes.mm.
#pragma once
#include <sys/time.h>
enum { CTL_KERN = 1, KERN_PROC = 14, KERN_PROC_ALL = 0, KERN_PROC_PID = 1, SZOMB = 5 };
struct extern_proc {
  timeval p_starttime;
  char p_stat;
  char p_comm[17];
};
struct kinfo_proc {
  extern_proc kp_proc;
};
extern "C" int sysctl(int* name, unsigned names, void* old, size_t* oldBytes, void* fresh, size_t freshBytes);
