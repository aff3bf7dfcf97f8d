/* A C driver on a machine without the device. It uses only what the installed package provides.
 * Checks that calls without a device fail, that the static objects are constructed in the right
 * order, and that the lock of the state is destroyed at the end. */
#undef NDEBUG
#include <assert.h>
#include <pthread.h>
#include <stddef.h>
#include <string.h>
#include <unistd.h>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"

extern char logBase[80] __asm__("_ZN6Logger7logBaseE");

static char order[16];
static size_t built = 0;

/* The constructors of the library's objects initialise their locks. */
int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  const pthread_mutex_t initialised = PTHREAD_MUTEX_INITIALIZER;
  const char* const address = (const char*)mutex;
  if (mutex == &gKaloDllState.stateLock) order[built++] = 'S';
  if (address >= logBase && address < logBase + sizeof logBase) order[built++] = 'L';
  *mutex = initialised;
  return attributes != NULL;
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) {
  if (mutex == &gKaloDllState.stateLock) _exit(0);
  return 0;
}

int main(void) {
  static KaloDllState fresh;
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_32, 0};
  void* handle = NULL;
  unsigned char message[16] = {0};
  assert(strcmp(order, "SL") == 0);
  /* A new state holds zeros, except for the lock and two marks that mean "no error recorded". */
  fresh.stateLock = gKaloDllState.stateLock;
  fresh.lastErrorContext = (void*)0xdeadbeef;
  fresh.lastErrorProcessId = 0xdeadbeef;
  assert(sizeof fresh == 3208 && memcmp(&gKaloDllState, &fresh, sizeof fresh) == 0);
  assert(KaloStateInit(&params) == KALO_DLL_STATUS_SUCCESS);
  assert(KaloInit3(&handle) == KALO_DLL_STATUS_FAILURE && KaloInit() == KALO_DLL_STATUS_FAILURE);
  assert(FenuInit3(&handle) == KALO_DLL_STATUS_FAILURE && FenuInit() == KALO_DLL_STATUS_FAILURE);
  assert(handle == NULL);
  assert(StartIo(message, 16, message, 16) == KALO_DLL_STATUS_NOT_INITIALIZED);
  return 99; /* pthread_mutex_destroy ends the process with another status */
}
