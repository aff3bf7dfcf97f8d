#pragma once

#include <string>

namespace common {

// Call this before the program opens any file. It opens /dev/null for each closed descriptor from 0
// to 2, so that no other file becomes a standard stream. Reading and writing there still fails, and
// a program started by exec finds these descriptors closed. After this call, a write beyond the
// limit of a file's size fails with EFBIG and does not end the process.
void PrepareStandardStreams();

// Call this last. Flushes standard output. If any output was lost, prints one line on standard
// error that begins with the name of `program`, and returns false.
bool FlushStandardOutput(const std::string& program);

}  // namespace common
