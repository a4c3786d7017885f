/* A host in C. It crashes when its input says so, and else ends normally at the end of its input. */
#include <crhost.h>
#include <stdio.h>
#include <string.h>

static int failed(const crhost_error* error) {
  if (error->status != CRHOST_OK) fprintf(stderr, "host: %s\n", error->text);
  return error->status != CRHOST_OK;
}

int main(int argc, char** argv) {
  crhost_error error;
  crhost_options* options = crhost_options_new();
  char line[80];
  char* volatile nowhere = NULL;
  if (options == NULL || argc != 3) return 2;
  crhost_set(options, CRHOST_DAEMON_PATH, argv[1]);
  crhost_set(options, CRHOST_REPORTER_PATH, argv[2]);
  crhost_set(options, CRHOST_APP_NAME, "Photo");
  crhost_set(options, CRHOST_APP_VERSION, "4.2");
  crhost_start(options, &error);
  crhost_options_free(options);
  if (failed(&error)) return 1;
  crhost_report_signals(CRHOST_FAULTS, &error);
  if (failed(&error)) return 1;
  printf("daemon %d\n", (int)crhost_daemon_id());
  fflush(stdout);
  while (fgets(line, sizeof line, stdin) != NULL && strcmp(line, "crash\n") == 0) *nowhere = 1;
  return crhost_announce_normal_end(&error), failed(&error);
}
