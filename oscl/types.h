#pragma once

/* Windows-style types of the compatibility layer. C programs can include the public headers of
 * oscl/. */

#include <stdint.h>

/* Inside the library these two make the functions between them protected: the library's calls reach
 * its own functions, even if the program has functions with the same common names. */
#ifdef OSCL_IMPLEMENTATION
#define OSCL_PUSH_VISIBILITY _Pragma("GCC visibility push(protected)")
#define OSCL_POP_VISIBILITY _Pragma("GCC visibility pop")
#else
#define OSCL_PUSH_VISIBILITY
#define OSCL_POP_VISIBILITY
#endif
#ifdef __cplusplus
#define OSCL_BEGIN_C OSCL_PUSH_VISIBILITY extern "C" {
#define OSCL_END_C \
  }                \
  OSCL_POP_VISIBILITY
#else
#define OSCL_BEGIN_C OSCL_PUSH_VISIBILITY
#define OSCL_END_C OSCL_POP_VISIBILITY
#endif

/* Data stays preemptible: a program at a fixed address has a copy that both sides use. */
#define OSCL_DATA extern __attribute__((visibility("default")))

/* A 32-bit boolean: 1 is success or true, 0 is failure or false. */
typedef int32_t BOOL;

/* A file descriptor, a module or a placeholder, widened to the size of a pointer. */
typedef void* HANDLE;
#define INVALID_HANDLE_VALUE ((HANDLE)(intptr_t)-1)

/* A registry key: a root constant, or the id of a key in the registry file. */
typedef uint32_t HKEY;

/* A signed 64-bit integer. */
typedef int64_t LARGE_INTEGER;

/* The result of an OSCL_ function: 0, E_FAIL or, from some registry functions, an error code. */
typedef uint32_t HRESULT;
#define S_OK ((HRESULT)0)
#define E_FAIL ((HRESULT)0x80004005u)
