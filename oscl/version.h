#pragma once

#include "oscl/types.h"

OSCL_BEGIN_C

/* The Windows version record. Here all fields after the third are 0. */
typedef struct OSVERSIONINFO {
  uint32_t dwOSVersionInfoSize; /* bytes of this record */
  uint32_t dwMajorVersion;
  uint32_t dwMinorVersion;
  uint32_t dwBuildNumber;
  uint32_t dwPlatformId;
  char szCSDVersion[128];
} OSVERSIONINFO;

/* Fills the record with the kernel's version from "/proc/version", stores 0 in gLastError and
 * returns
 * 1. If the file cannot be opened (the code of its errno) or does not begin with a version (code
 * 16), it sets all fields except the size to 0 and returns 0. If `info` is null, it returns 0 with
 * code 2. Any thread. */
BOOL GetVersionEx(OSVERSIONINFO* info);

OSCL_END_C
