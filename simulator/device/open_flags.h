#pragma once

#include <fcntl.h>

namespace zulisim {

// As the kernel shows it; to a 64-bit program the constant is 0.
inline constexpr int kKernelLargeFile = 0100000;

// The flags of an open that have a name in recordings: `value` under `mask`.
struct OpenFlag {
  const char* name;
  int mask;
  int value;
};

inline constexpr OpenFlag kOpenFlags[] = {
    {"O_RDONLY", O_ACCMODE, O_RDONLY},
    {"O_WRONLY", O_ACCMODE, O_WRONLY},
    {"O_RDWR", O_ACCMODE, O_RDWR},
    {"O_CREAT", O_CREAT, O_CREAT},
    {"O_EXCL", O_EXCL, O_EXCL},
    {"O_NOCTTY", O_NOCTTY, O_NOCTTY},
    {"O_TRUNC", O_TRUNC, O_TRUNC},
    {"O_APPEND", O_APPEND, O_APPEND},
    {"O_NONBLOCK", O_NONBLOCK, O_NONBLOCK},
    {"O_CLOEXEC", O_CLOEXEC, O_CLOEXEC},
    {"O_LARGEFILE", kKernelLargeFile, kKernelLargeFile},
};

}  // namespace zulisim
