#pragma once

#include "simulator/in_process/in_process_device.h"
#include "tests/oscl/file_fixture.h"

// Replaces the registry file by the file of the test.
class RegistryFixture : public FileFixture {
 private:
  zulisim::Engine engine_;
  const zulisim::InProcessDevice attachment_{engine_, {{"/etc/vrel_registry.txt", path_}}};
};
