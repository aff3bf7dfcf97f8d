/* Uses the library like a C driver. Checks that the header compiles as C, that the entry points
 * link, that the static objects are constructed in the right order, and that the lock of the state
 * is destroyed at the end. */

#include "api/kalo_dll.h"

#include <dlfcn.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

extern char gKaloDllState[3208];
extern char logBase[80] __asm__("_ZN6Logger7logBaseE");

static char order[16];
static size_t built = 0;
static int wrong;

/* The constructors of the library's objects initialise their locks. */
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

int pthread_mutex_destroy(pthread_mutex_t* mutex) {
  if ((char*)mutex == gKaloDllState + 8) _exit(wrong);
  return 0;
}

/* A new state holds zeros, except for the lock and for two marks that mean "no error recorded". */
static int IsFresh(void) {
  static const unsigned char kMarks[12] = {0xef, 0xbe, 0xad, 0xde, 0,    0,
                                           0,    0,    0xef, 0xbe, 0xad, 0xde};
  size_t i;
  for (i = 0; i < sizeof gKaloDllState; ++i) {
    const int marked = i >= 3168 && i < 3168 + sizeof kMarks, lock = i >= 8 && i < 48;
    if (!lock && (unsigned char)gKaloDllState[i] != (marked ? kMarks[i - 3168] : 0)) return 0;
  }
  return 1;
}

/* Runs without a device. Sets one bit for each check that fails. */
int main(void) {
  unsigned char message[32] = {0};
  void* handle = NULL;
  wrong = strcmp(order, "SL") != 0 || !IsFresh();
  wrong |= (KaloInit3(&handle) != 1 || FenuInit3(&handle) != 1 || handle != NULL) << 1;
  wrong |= (FenuInit() != 1 || KaloInit() != 1) << 2;
  wrong |= (StartIo3(handle, message, 32, message, 32) != 2) << 3;
  wrong |= (StartIo(message, 32, message, 32) != 6) << 4;
  wrong |= (KaloCleanup() != 0 || KaloCleanup3(NULL) != 0) << 5;
  wrong |= (FenuCleanup() != 0 || FenuCleanup3(NULL) != 0) << 6;
  return 99; /* the process ends in pthread_mutex_destroy before this, if all is well */
}
