#pragma once

#include <string>

namespace common {

// Call this before the program opens any file. It opens /dev/null for each closed descriptor from 0
// to 2, so that no other file becomes a standard stream. Reading from and writing to these
// descriptors still fails, and programs started by exec find them closed. After this call, a write
// beyond the file size limit fails with EFBIG instead of ending the process.
void PrepareStandardStreams();

// Call this last. Flushes standard output. If any output was lost, prints one line on standard
// error that begins with the name of `program`, and returns false.
bool FlushStandardOutput(const std::string& program);

}  // namespace common
