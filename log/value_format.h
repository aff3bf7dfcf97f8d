#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "log/value_format.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <ostream>

#include "oscl/guid.h"

// Prints {0fb1c2d3,00ab,0cde,01,02,03,04,05,06,07,08}. Sets the stream's base to decimal and its
// fill to '0'. The printers throw only if the stream is set to; any thread may use them on its own
// stream.
std::ostream& operator<<(std::ostream& stream, const _GUID& guid);

// Prints the first length/4 bytes of `bytes`, each as seven '0' and the raw byte, eight per line.
// `bytes` holds at least length/4 bytes. Sets base and fill like the GUID printer, except that a
// length of 0 does not change the fill.
void logBytesAsDwords(std::ostream& stream, const unsigned char* bytes, unsigned int length);
