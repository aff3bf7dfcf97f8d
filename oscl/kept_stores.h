#pragma once

namespace oscl {

// Stops the compiler from dropping stores to `*object`. Call it at the end of a destructor if the
// stored values are read after the object is destroyed.
inline void KeepStores(void* object) { __asm__ volatile("" : : "r"(object) : "memory"); }

}  // namespace oscl
