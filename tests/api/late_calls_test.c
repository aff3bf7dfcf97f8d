/* A driver that loads the library at run time and calls it again at the end of the process, after
 * the library has destroyed its objects. Usage: late_calls_test LIBRARY live|destroyed|delivering
 */

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

static unsigned (*cleanup)(void);
static unsigned (*start)(unsigned char*, unsigned, unsigned char*, unsigned);
static int live;
static char* counts; /* the reference counts in the state, and a flag */
enum { kCountsOffset = 3188, kCountsSize = 13, kListOffset = 8 };

/* A sink with the memory layout of C++. Its first line ends the process. `list` is the log's list
 * of sinks. */
static void Line(void) { exit(0); }
static void Delete(void) { _Exit(5); }
static void (*const kVirtuals[])(void) = {Line, Delete, Delete};
static const void* const kSink = kVirtuals;
static const void* slot = &kSink;
static const void** list; /* begin, end, end of storage */

static unsigned Send(void) {
  unsigned char message[16] = {0, 0, 0, 0, 0, 0, 3, 0};
  return start(message, sizeof message, message, sizeof message);
}

/* The state still has the address of the session. The library must still know whether the session
 * exists. */
static void CleanUp(void) {
  static const char kZeros[kCountsSize];
  if (list != NULL) _Exit(list[0] == NULL && list[1] == NULL && list[2] == NULL ? 0 : 6);
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
  if (strcmp(arguments[2], "delivering") == 0) {
    unsigned (*log)(void*) = NULL;
    *(void**)&log = dlsym(library, "KaloStateInit");
    list = (const void**)((char*)dlsym(library, "_ZN6Logger7logBaseE") + kListOffset);
    list[0] = &slot;
    list[1] = list[2] = &slot + 1;
    log(NULL);
    return 1;
  }
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
