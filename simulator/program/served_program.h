#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulator/device/device.h"

namespace zulisim {

// A program that is to be served a device. Make it before the first thread.
class ServedProgram {
 public:
  virtual ~ServedProgram() = default;
  // Runs the program to its end and returns what RunChild returns.
  virtual int Run(Device& device) = 0;
};

}  // namespace zulisim
