#include "common/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

namespace common {

void PrepareStandardStreams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) != -1) continue;
    // Use the wrong direction on purpose, so that the program's reads or writes still fail.
    const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    open("/dev/null", direction | O_CLOEXEC);
  }
  // Install a handler instead of SIG_IGN, because programs started by exec would inherit SIG_IGN.
  std::signal(SIGXFSZ, [](int) {});
}

bool FlushStandardOutput(const std::string& program) {
  errno = 0;
  std::cout.flush();
  if (std::cout) return true;
  // If an earlier write failed, its errno is no longer known.
  const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
  std::cerr << program << ": cannot write to standard output" << reason << '\n';
  return false;
}

}  // namespace common
