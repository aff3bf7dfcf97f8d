/* A driver that loads the library at run time and calls it again at the end of the process, after
 * the library has destroyed its objects. Usage: late_calls_test LIBRARY live|destroyed|delivering
 */

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"

/* Finds a function of the library, which the linker must not do. */
#define LOADED(name) (__extension__(__typeof__(&name)) dlsym(library, #name))

static void* library;
static int live;
static KaloDllState* state;
enum { kListOffset = 8 };

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
  return LOADED(StartIo)(message, sizeof message, message, sizeof message);
}

/* The state still has the address of the session. The library must still know whether the session
 * exists. */
static void CleanUp(void) {
  if (list != NULL) _Exit(list[0] == NULL && list[1] == NULL && list[2] == NULL ? 0 : 6);
  if (state == NULL) return;
  if (state->kaloRefCountA + state->kaloRefCountB + state->fenuRefCount != 0) _Exit(4);
  if (state->sessionBShared) _Exit(4);
  if (Send() != (live ? 0 : 6) || LOADED(FenuCleanup)() != 0 || Send() != 6) _Exit(3);
}

int main(int count, char** arguments) {
  void* handle = NULL;
  if (count != 3 || atexit(CleanUp) != 0) return 2;
  live = strcmp(arguments[2], "live") == 0;
  library = dlopen(arguments[1], RTLD_NOW);
  if (library == NULL) return 1;
  if (strcmp(arguments[2], "delivering") == 0) {
    list = (const void**)((char*)dlsym(library, "_ZN6Logger7logBaseE") + kListOffset);
    list[0] = &slot;
    list[1] = list[2] = &slot + 1;
    LOADED(KaloStateInit)(NULL);
    return 1;
  }
  if (LOADED(FenuInit3)(&handle) != 0) return 1;
  if (!live && LOADED(FenuCleanup3)(handle) != 0) return 1;
  state = dlsym(library, "gKaloDllState");
  state->kaloRefCountA = state->kaloRefCountB = state->fenuRefCount = 1;
  state->sessionBShared = true;
  return 0;
}
