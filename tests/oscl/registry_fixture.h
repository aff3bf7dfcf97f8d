#pragma once

#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "simulator/in_process/in_process_device.h"
#include "tests/support/descriptors.h"
#include "tests/support/standard_headers.h"

// Replaces the registry file, or another one, by a file of the test that does not exist yet, in
// memory if possible. The test must close all descriptors and free all memory.
class RegistryFixture : public testing::Test {
 protected:
  explicit RegistryFixture(const std::string& replaced = "/etc/vrel_registry.txt")
      : attachment_(engine_, {{replaced, path_}}) {
    // An earlier process with the same number may have left the file.
    std::remove(path_.c_str());
  }
  ~RegistryFixture() override {
    EXPECT_EQ(test::OpenDescriptors(), descriptors_);
    EXPECT_EQ(gAllocationCount, blocks_);
    std::remove(path_.c_str());
  }

  void Store(const std::string& text) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
  }

  std::string Stored() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Returns what the library wrote, with "|" for each line end and the indentation after it.
  std::string StoredLines() const {
    return std::regex_replace(Stored(), std::regex(" \n\t*"), "|");
  }

  const std::string path_ = (access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir()) +
                            "kalodll_oscl." + std::to_string(getpid());

 private:
  zulisim::Engine engine_;
  const zulisim::InProcessDevice attachment_;
  const long descriptors_ = test::OpenDescriptors();
  const int32_t blocks_ = gAllocationCount;
};
