#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* The Windows version record. Only the first three fields are ever other than 0 here. */
typedef struct OSVERSIONINFO {
  uint32_t dwOSVersionInfoSize; /* bytes of this record */
  uint32_t dwMajorVersion;
  uint32_t dwMinorVersion;
  uint32_t dwBuildNumber;
  uint32_t dwPlatformId;
  char szCSDVersion[128];
} OSVERSIONINFO;

/* Fills the record with the kernel's version from "/proc/version". Returns 1 and stores 0 in
 * gLastError. Returns 0 when the file cannot be opened (the code of its errno) or does not begin
 * with a version (code 16), the record being zero but for its size; a null `info` is code 2. Any
 * thread. */
BOOL GetVersionEx(OSVERSIONINFO* info);

OSCL_END_C
