#pragma once

#include "oscl/types.h"

/* A 16-byte identifier in the Windows layout, little-endian. */
typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
