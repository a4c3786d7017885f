/*
 * The host kit of CRDaemon: what an application (the host) needs to be watched by the daemon and to write a report of
 * the signal that kills it.
 *
 *   crhost_options* options = crhost_options_new();
 *   crhost_set(options, CRHOST_DAEMON_PATH, "/usr/libexec/crdaemon/CRDaemon");
 *   crhost_set(options, CRHOST_REPORTER_PATH, "/opt/photo/Reporter");
 *   crhost_set(options, CRHOST_APP_NAME, "Photo");
 *   crhost_start(options, &error);
 *   crhost_options_free(options);
 *   crhost_report_signals(CRHOST_FAULTS, &error);
 *   ...
 *   crhost_announce_normal_end(&error);
 *
 * The kit speaks for the process as a whole: it starts one daemon and writes one report. It runs no thread, keeps no
 * descriptor open, leaves no process behind but the daemon, and never ends the process or throws. Texts are UTF-8,
 * ended by a NUL, and copied. Functions may be called from any thread unless they say otherwise.
 */
#ifndef CRHOST_H
#define CRHOST_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define CRHOST_API __attribute__((visibility("default")))
#else
#define CRHOST_API
#endif

typedef enum crhost_status {
  CRHOST_OK = 0,
  CRHOST_INVALID_OPTION,  /* an option is missing or cannot be what it is */
  CRHOST_NO_DAEMON,       /* the daemon is missing or cannot be executed */
  CRHOST_NO_REPORTER,     /* so the crash reporter */
  CRHOST_ALREADY_STARTED, /* by this process, or by the one it was forked from */
  CRHOST_NOT_STARTED,     /* no daemon watches this process */
  CRHOST_NO_FOLDER,       /* there is no folder to write reports to */
  CRHOST_NO_BUS,          /* there is no session bus, or it refuses */
  CRHOST_TIMED_OUT,       /* the session bus did not answer in two seconds */
  CRHOST_SYSTEM_ERROR     /* the system refused, such as for want of memory */
} crhost_status;

/* Filled in by what fails, and cleared by what succeeds. Wherever one is asked for, NULL is welcome. */
typedef struct crhost_error {
  crhost_status status;
  int system_error; /* an errno, or 0 */
  char text[240];   /* one sentence for the author of the host: what is wrong, with which option or file */
} crhost_error;

/*
 * The daemon's arguments, by their numbers in its manual page; 0 is its own path, 1 (the process id) goes in by itself.
 * Flags are "0" or "1". What has no default is the empty text, and what is marked with a star must be set.
 */
typedef enum crhost_option {
  CRHOST_DAEMON_PATH = 0, /* * its executable */
  CRHOST_APP_NAME = 2,    /* * reports of this run begin with it: no "/", no control character */
  CRHOST_APP_VERSION = 3,
  CRHOST_ICON_PATH = 4,           /* for the crash reporter */
  CRHOST_REPORTER_PATH = 5,       /* * executable of the crash reporter */
  CRHOST_SEND_WITHOUT_PROMPT = 6, /* "1": whatever the user's preference; default "0" */
  CRHOST_BROWSER_NAME = 7,        /* of a plug-in's host */
  CRHOST_BROWSER_VERSION = 8,
  CRHOST_BROWSER_BUILD = 9,        /* not empty: the plug-in variant */
  CRHOST_BINARY_IMAGE_NAME = 10,   /* of the plug-in: without it in the report no reporter is started */
  CRHOST_DEFAULT_DESCRIPTION = 11, /* for the crash reporter */
  CRHOST_PRODUCT_VERSION = 12,
  CRHOST_PRODUCT_BUILD = 13,
  CRHOST_ANALYTICS_FAMILY = 14, /* product family and name of the analytics system */
  CRHOST_ANALYTICS_NAME = 15,
  CRHOST_DIALOG_DISPLAY_NAME = 16, /* for the crash reporter; default: the application's name */
  CRHOST_SHOW_ONLY_ONCE = 17,      /* for the crash reporter; default "0" */
  CRHOST_SCALING_FACTOR = 18,      /* for the crash reporter; default "1.0" */
  CRHOST_DIALOG_FOR_SIGNAL = 19,   /* flag: start the crash reporter also after a signal; default "1" */
  CRHOST_DIALOG_OPTIONS = 20,      /* for the crash reporter */
  CRHOST_DIALOG_EMAIL = 21,        /* for the crash reporter */
  CRHOST_REPORTER_VERSION = 22,    /* of the crash reporter; no control character */
  CRHOST_EXIT_ZERO_IS_NORMAL = 23, /* flag: own reports then count for handled signals alone; default "0" */
  CRHOST_WAIT_SECONDS = 24,        /* how long the daemon waits for a report; default "20" */
  CRHOST_DISABLE_REPORTING = 25,   /* flag: the user is throttled; default "0" */
  CRHOST_USER_GUID = 26,           /* the signed-in user; no control character */
  CRHOST_CODE_TYPE = 27,           /* default: this machine's, such as "X86-64" */
  CRHOST_LOG_CRASHED_MODULE = 28,  /* flag; default "0" */
  CRHOST_LICENSE_TYPE = 29,        /* of the session, for the crash reporter */
  CRHOST_SIGNAL_HANDLING = 30,     /* flag: handled signals count as such; default "1" */
  CRHOST_SESSION_ID = 31           /* of the analytics system, for the host's own report alone; no control character */
} crhost_option;

typedef struct crhost_options crhost_options;

/* Yours, to free. NULL: out of memory. An object is for one thread at a time. */
CRHOST_API crhost_options* crhost_options_new(void);
CRHOST_API void crhost_options_free(crhost_options* options); /* NULL is welcome */

/* CRHOST_INVALID_OPTION: no such option, or no text. Whether the value will do is said by crhost_start. */
CRHOST_API crhost_status crhost_set(crhost_options* options, crhost_option option, const char* value);

/*
 * Checks the options and starts the daemon, once in the life of a process: a second call, in the process or in a fork
 * of it, is CRHOST_ALREADY_STARTED; after a failure it may be called again. The daemon is a child of this process with
 * its environment and working directory, in a session of its own, with all signals at their defaults, /dev/null for
 * standard streams, and no other descriptor; it lives on when this process ends. Under which name a report of this run
 * is written is fixed now. Give it some 50 ms to take hold: what dies earlier may go unnoticed.
 */
CRHOST_API crhost_status crhost_start(const crhost_options* options, crhost_error* error);

/* Its process id; -1 where this process has started none. */
CRHOST_API pid_t crhost_daemon_id(void);

#define CRHOST_FAULTS 1U /* SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS */
#define CRHOST_HANDLED_SIGNALS                                                          \
  2U /* SIGHUP, SIGINT, SIGPIPE, SIGALRM, SIGTERM, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF \
      */

/*
 * From now on these signals write a report where the daemon looks for it, and then kill the process as they always did.
 * A signal that the host ignores or has a handler for keeps it: see crhost_on_signal. Arms the calling thread, which
 * should be the main one. May be called again, for more signals. Nothing is written for a fork of this process.
 *
 * The report is whole or not there. It is written with system calls alone, also inside malloc, after a stack overflow
 * (of an armed thread), and when following the stack crashes in its turn. The first thread to crash writes, others
 * wait.
 */
CRHOST_API crhost_status crhost_report_signals(unsigned which, crhost_error* error);

/*
 * Gives the calling thread a stack of its own for signals, without which the overflow of its stack goes unreported;
 * keeps one that is large enough. Released when the thread ends. To be called at the beginning of every thread of the
 * host.
 */
CRHOST_API crhost_status crhost_arm_thread(crhost_error* error);

/*
 * For a handler of the host's own, as its last step: writes the report, then sees to it that the signal kills the
 * process when the handler returns. The arguments are those of an SA_SIGINFO handler; without info or context nothing
 * is written. The handler may block faults: they are let through again. Safe in a signal handler, and only there.
 */
CRHOST_API void crhost_on_signal(int signal_number, void* info, void* context);

/*
 * Tell the daemon that this process ends on purpose, and that it has delivered its exception itself. Take two seconds
 * at the very most. CRHOST_OK: the session bus has it. In a fork of the process that started the daemon:
 * CRHOST_NOT_STARTED.
 */
CRHOST_API crhost_status crhost_announce_normal_end(crhost_error* error);
CRHOST_API crhost_status crhost_announce_exception_delivered(crhost_error* error);

#ifdef __cplusplus
}
#endif

#endif
