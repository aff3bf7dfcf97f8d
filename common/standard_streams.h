#pragma once

#include <string>

namespace common {

// Call this before anything is opened. It opens /dev/null for those of the descriptors 0 to 2 that
// are closed, so that no file or device takes the place of a standard stream: reading and writing
// there still fails, and a program started by exec finds them closed. A write beyond the limit of a
// file's size now fails with EFBIG; without this it ends the process.
void PrepareStandardStreams();

// Call this last. Writes what standard output still buffers. Returns false, after one line on
// standard error that begins with the name of `program`, if any output was lost.
bool FlushStandardOutput(const std::string& program);

}  // namespace common
