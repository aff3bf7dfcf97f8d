/* A driver that loads the library at run time and calls it again at the end of the process, after
 * the library has destroyed its objects. Usage: late_calls_test LIBRARY live|destroyed
 */

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

static unsigned (*cleanup)(void);
static unsigned (*start)(unsigned char*, unsigned, unsigned char*, unsigned);
static int live;
static char* counts; /* the reference counts in the state, and a flag */
enum { kCountsOffset = 3188, kCountsSize = 13 };

static unsigned Send(void) {
  unsigned char message[16] = {0, 0, 0, 0, 0, 0, 3, 0};
  return start(message, sizeof message, message, sizeof message);
}

/* The state still has the address of the session. The library must still know whether the session
 * exists. */
static void CleanUp(void) {
  static const char kZeros[kCountsSize];
  if (start == NULL) return;
  if (memcmp(counts, kZeros, kCountsSize) != 0) _Exit(4);
  if (Send() != (live ? 0 : 6) || cleanup() != 0 || Send() != 6) _Exit(3);
}

int main(int count, char** arguments) {
  unsigned (*init3)(void**) = NULL;
  unsigned (*cleanup3)(void*) = NULL;
  void* library;
  void* handle = NULL;
  if (count != 3 || atexit(CleanUp) != 0) return 2;
  live = strcmp(arguments[2], "live") == 0;
  library = dlopen(arguments[1], RTLD_NOW);
  if (library == NULL) return 1;
  *(void**)&init3 = dlsym(library, "FenuInit3");
  *(void**)&cleanup3 = dlsym(library, "FenuCleanup3");
  *(void**)&cleanup = dlsym(library, "FenuCleanup");
  *(void**)&start = dlsym(library, "StartIo");
  if (init3(&handle) != 0) return 1;
  if (!live && cleanup3(handle) != 0) return 1;
  counts = (char*)dlsym(library, "gKaloDllState") + kCountsOffset;
  memset(counts, 1, kCountsSize);
  return 0;
}
