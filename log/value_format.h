#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "log/value_format.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <ostream>

#include "oscl/guid.h"

// Prints {0fb1c2d3,00ab,0cde,01,02,03,04,05,06,07,08}. Leaves the stream's base at decimal and its
// fill at '0'. Neither printer throws unless the stream was told to; each may be used from any
// thread on a stream of its own.
std::ostream& operator<<(std::ostream& stream, const _GUID& guid);

// Prints the first length/4 bytes of `bytes`, each as seven '0' and the raw byte, eight to a line.
// `bytes` holds at least length/4 bytes. Leaves the stream as the GUID printer does; with
// a length of 0 the fill stays as it was.
void logBytesAsDwords(std::ostream& stream, const unsigned char* bytes, unsigned int length);
