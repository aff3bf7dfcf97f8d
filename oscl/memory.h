#pragma once

#include <stddef.h>

#include "oscl/types.h"

OSCL_BEGIN_C

/* The number of live blocks that AllocMem and AllocAndZeroMem handed out and FreeMem has not taken
 * back: a diagnosis of leaks that nothing in the library reads. Any thread may change it at any
 * time; a block released by other means than FreeMem stays counted. */
OSCL_DATA int32_t gAllocationCount;

/* Each of the functions below stores 0 in gLastError when it succeeds; FreeMem of a null pointer
 * leaves it. */

/* Returns a block of `size` bytes with undefined content, or null with code 1 in gLastError. The
 * caller releases it with FreeMem. Any thread. */
void* AllocMem(size_t size);

/* As AllocMem, zero-filled by ZeroMemory: of a block of 4 GiB or more only the first
 * `size` modulo 2^32 bytes. */
void* AllocAndZeroMem(size_t size);

/* Releases a block of the two functions above; a null pointer is ignored. Any thread. */
void FreeMem(void* block);

/* Fill `length` bytes with 0, or with the low 8 bits of `value`. A null `dst` is ignored, and a
 * success too. Any thread, on distinct memory. */
void ZeroMemory(void* dst, uint32_t length);
void FillMemory(void* dst, uint32_t length, uint32_t value);

/* Copies `length` bytes between blocks that do not overlap. Returns 0, or 1 with code 2 in
 * gLastError when a pointer is null. Any thread, on distinct memory. */
int32_t CopyMemory(void* dst, const void* src, uint32_t length);

OSCL_END_C
