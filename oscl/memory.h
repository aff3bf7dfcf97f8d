#pragma once

#include <stddef.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* The number of blocks that AllocMem and AllocAndZeroMem have allocated and FreeMem has not
 * released. It helps to find leaks; the library does not read it. Any thread may change it at any
 * time. A block released by other means than FreeMem stays counted. */
OSCL_DATA int32_t gAllocationCount;

/* Each function below stores 0 in gLastError when it succeeds, except FreeMem of a null pointer. */

/* Returns a block of `size` bytes with undefined content, or null with code 1 in gLastError. The
 * caller releases it with FreeMem. Any thread. */
void* AllocMem(size_t size);

/* Like AllocMem, but filled with zeros by ZeroMemory: of a block of 4 GiB or more, only the first
 * `size` modulo 2^32 bytes. */
void* AllocAndZeroMem(size_t size);

/* Releases a block of AllocMem or AllocAndZeroMem. Ignores a null pointer. Any thread. */
void FreeMem(void* block);

/* Fill `length` bytes with 0, or with the low 8 bits of `value`. A null `dst` counts as a success.
 * Any thread, on distinct memory. */
void ZeroMemory(void* dst, uint32_t length);
void FillMemory(void* dst, uint32_t length, uint32_t value);

/* Copies `length` bytes between blocks that do not overlap. Returns 0, or 1 with code 2 in
 * gLastError when a pointer is null. Any thread, on distinct memory. */
int32_t CopyMemory(void* dst, const void* src, uint32_t length);

OSCL_END_C
