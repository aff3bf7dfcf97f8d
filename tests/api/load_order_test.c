/* As a C driver sees the library: its header compiles as C, the entry points link, and the static
 * objects are built in their order. */

#include "api/kalo_dll.h"

#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>


extern char gKaloDllState[3208];
extern char logBase[80] __asm__("_ZN6Logger7logBaseE");

static char order[16];
static size_t built = 0;

/* The library's objects initialise their locks as they are built. */
int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  const char* address = (const char*)mutex;
  if (address >= gKaloDllState && address < gKaloDllState + sizeof gKaloDllState) {
    order[built++] = 'S';
  } else if (address >= logBase && address < logBase + sizeof logBase) {
    order[built++] = 'L';
  }
  int (*real)(pthread_mutex_t*, const pthread_mutexattr_t*) = NULL;
  *(void**)&real = dlsym(RTLD_NEXT, "pthread_mutex_init");
  return real(mutex, attributes);
}

static int failures = 0;
static void Check(int holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "not so: %s\n", what);
    ++failures;
  }
}

int main(void) {
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_32, 1};
  unsigned char message[32] = {0};
  void* handle = NULL;

  Check(strcmp(order, "SL") == 0, "the state is built first, then the log, each once");
  Check(KaloStateInit(&params) == KALO_DLL_STATUS_SUCCESS, "KaloStateInit succeeds");
  Check(KaloInit3(&handle) == KALO_DLL_STATUS_FAILURE, "there is no device");
  Check(FenuInit3(&handle) == KALO_DLL_STATUS_FAILURE && FenuInit() == 1, "nor for the display");
  Check(handle == NULL, "no handle is given out");
  Check(StartIo3(handle, message, 32, message, 32) == KALO_DLL_STATUS_INVALID_PARAMETER, "null handle");
  Check(StartIoEx3(NULL, NULL, 0, NULL, 0, NULL, NULL) == 2, "null everything");
  Check(StartIo(message, 32, message, 32) == KALO_DLL_STATUS_NOT_INITIALIZED, "no session");
  Check(StartIoEx(message, 15, message, 15, NULL, NULL) == 3, "short request");
  Check(KaloInit() == 1 && KaloCleanup() == 0 && KaloCleanup3(NULL) == 0, "KALO cleanups");
  Check(FenuCleanup3(NULL) == 0 && FenuCleanup() == 0, "FENU cleanups");
  return failures;
}
