#pragma once

#include <string>
#include <utility>
#include <vector>

#include "simulator/engine/engine.h"

namespace zulisim {

// Serves "/dev/zuli" to the very process that runs the engine. A program that links
// zulisim_inprocess defines libc's functions itself, so that the calls of its shared libraries
// through the dynamic linker arrive here; all that is not the device's goes on to libc untouched.
//
//   zulisim::Engine engine;
//   zulisim::InProcessDevice attachment(engine, {{"/data/Marvoleth.log", folder +
//   "/Marvoleth.log"}});
//
// While an attachment lives, opening the device opens a descriptor of `engine`, and a path on the
// left of `redirects` is opened, examined or removed at the one on its right. Paths match when
// they are absolute and differ at most in repeated slashes and "." components.
//
// Descriptors are real ones of the kernel: they collide with nothing, dup and fcntl duplicate them,
// close_range closes them, fstat shows a character device. Those that are open when the attachment
// ends stay reserved, answer ENODEV, and can be closed. The device cannot be a stdio stream (fopen
// and fdopen give EOPNOTSUPP). After a fork the child has a copy of the engine. Calls that reach
// the kernel in another way (syscall(2), or libc's own use of its functions) are not seen.
//
// One at a time: a second one throws std::logic_error. Construction and destruction may run while
// other threads make calls.
class InProcessDevice {
 public:
  using Redirects = std::vector<std::pair<std::string, std::string>>;

  explicit InProcessDevice(Engine& engine, Redirects redirects = {});
  ~InProcessDevice();
  InProcessDevice(const InProcessDevice&) = delete;
  InProcessDevice& operator=(const InProcessDevice&) = delete;
};

}  // namespace zulisim
