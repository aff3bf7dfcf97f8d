// The preset clang includes this file before every source of the library. It simulates the
// differences of Android's libc that another libc can show: the layout that follows from the
// alignment of its mutex, and a call that its open refuses. It does not show what Android's headers
// lack. The test imported_functions checks that, with a list of the included headers and called
// functions.

#pragma once
#pragma clang system_header

#include <fcntl.h>
#include <pthread.h>

// All headers that use libc's own mutex come before the changes below.
#include <fstream>
#include <locale>
#include <memory>

struct AndroidMutex {
  int words[10];
};

#define pthread_mutex_t AndroidMutex

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int pthread_mutex_destroy(pthread_mutex_t* mutex);
int pthread_mutex_lock(pthread_mutex_t* mutex);
int pthread_mutex_unlock(pthread_mutex_t* mutex);

int open(const char* path, int flags, mode_t mode)
    __attribute__((diagnose_if((flags & O_CREAT) == 0, "superfluous mode", "warning")));
