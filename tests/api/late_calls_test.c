/* A driver that loads the library late and still calls it when the library's objects are gone, at
 * the end of the process:  late_calls_test LIBRARY */

#include <dlfcn.h>
#include <stdlib.h>

static unsigned (*cleanup)(void);

/* The state still holds the address of the session; that it is gone must still be known. */
static void CleanUp(void) {
  if (cleanup != NULL && cleanup() != 0) _Exit(3);
}

int main(int count, char** arguments) {
  unsigned (*init3)(void**) = NULL;
  unsigned (*cleanup3)(void*) = NULL;
  void* library;
  void* handle = NULL;
  if (count != 2 || atexit(CleanUp) != 0) return 2;
  library = dlopen(arguments[1], RTLD_NOW);
  if (library == NULL) return 1;
  *(void**)&init3 = dlsym(library, "FenuInit3");
  *(void**)&cleanup3 = dlsym(library, "FenuCleanup3");
  *(void**)&cleanup = dlsym(library, "FenuCleanup");
  return init3(&handle) != 0 || cleanup3(handle) != 0;
}
