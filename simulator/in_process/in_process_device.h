#pragma once

#include <string>
#include <utility>
#include <vector>

#include "simulator/engine/engine.h"

namespace zulisim {

// Serves "/dev/zuli" in the process that runs the engine. A program that links zulisim_inprocess
// defines libc's functions itself, so calls that its shared libraries make through the dynamic
// linker arrive here. Calls that do not concern the device go on to libc unchanged.
//
//   zulisim::Engine engine;
//   zulisim::InProcessDevice device(engine, {{"/data/Marvoleth.log", folder + "/Marvoleth.log"}});
//
// While an object exists, opening the device opens a descriptor of `engine`, and each path on the
// left of `redirects` is replaced by the path on its right. Paths match if they are absolute and
// differ only in repeated slashes and "." or ".." components.
//
// Descriptors are allocated by the kernel, so no other file has their numbers. dup and fcntl
// duplicate them, and fstat shows a character device. Descriptors that are open when the object is
// destroyed stay reserved, fail with ENODEV, and can be closed. The device cannot be a stdio
// stream: fopen and fdopen fail with EOPNOTSUPP. After a fork, the child has a copy of the engine.
// Calls that reach the kernel in another way (raw system calls, or libc's calls of its own
// functions) do not reach the engine, and neither does close_range.
//
// Only one object can exist at a time: the constructor of a second one throws std::logic_error.
// Other threads may make calls during construction and destruction.
class InProcessDevice {
 public:
  using Redirects = std::vector<std::pair<std::string, std::string>>;

  explicit InProcessDevice(Engine& engine, Redirects redirects = {});
  ~InProcessDevice();
  InProcessDevice(const InProcessDevice&) = delete;
  InProcessDevice& operator=(const InProcessDevice&) = delete;
};

}  // namespace zulisim
