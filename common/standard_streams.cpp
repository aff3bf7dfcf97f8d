#include "common/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

namespace common {

void OccupyStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) != -1) continue;
    // Not for the stream's own direction, so that what is lost is not taken for written.
    const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    open("/dev/null", direction | O_CLOEXEC);
  }
}

}  // namespace common
