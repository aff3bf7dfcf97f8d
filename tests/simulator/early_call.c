/* Preloaded after the hooks: calls one of them before there is an environment, as the start-up of
 * Android's libc does. */

#include <unistd.h>

extern char** environ;

__attribute__((constructor)) static void CallEarly(void) {
  char** const later = environ;
  environ = NULL;
  (void)!access("/", F_OK);
  environ = later;
}
