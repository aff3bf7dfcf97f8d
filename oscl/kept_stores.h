#pragma once

namespace oscl {

// Keeps what has been stored in `*object`. Called at the end of a destructor whose stores are read
// after the object's life, it stops the compiler from dropping them.
inline void KeepStores(void* object) { __asm__ volatile("" : : "r"(object) : "memory"); }

}  // namespace oscl
