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
    // Not for the stream's own direction, so that lost output does not count as written.
    const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    open("/dev/null", direction | O_CLOEXEC);
  }
  // A handler, because a started program would inherit that the signal is ignored.
  std::signal(SIGXFSZ, [](int) {});
}

bool FlushStandardOutput(const std::string& program) {
  errno = 0;
  std::cout.flush();
  if (std::cout) return true;
  // An earlier write may have failed, whose errno is lost.
  const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
  std::cerr << program << ": cannot write to standard output" << reason << '\n';
  return false;
}

}  // namespace common
