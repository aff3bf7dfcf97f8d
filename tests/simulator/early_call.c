/* Preloaded after the hooks. Calls one of them before the environment is set up, as the start-up
 * code of Android's libc does. */

#include <unistd.h>

extern char** environ;

__attribute__((constructor)) static void CallEarly(void) {
  char** const later = environ;
  environ = NULL;
  (void)!access("/", F_OK);
  environ = later;
}
