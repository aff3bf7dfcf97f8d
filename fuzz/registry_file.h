#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "simulator/in_process/in_process_device.h"

// A registry file in memory that replaces the real one.
class RegistryFile {
 public:
  void Store(const std::string& text) const {
    if (ftruncate(descriptor_, 0) != 0) return;
    if (pwrite(descriptor_, text.data(), text.size(), 0) < 0) return;
  }

 private:
  const int descriptor_ = memfd_create("registry", 0);
  const std::string path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  zulisim::Engine engine_;
  zulisim::InProcessDevice attachment_{engine_, {{"/etc/vrel_registry.txt", path_}}};
};
