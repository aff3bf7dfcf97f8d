#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "tests/support/descriptors.h"

// Provides the path of a file that does not exist yet, in memory if possible. The test must close
// all descriptors and free all memory.
class FileFixture : public testing::Test {
 protected:
  // An earlier process with the same number may have left the file.
  FileFixture() { std::remove(path_.c_str()); }
  ~FileFixture() override {
    EXPECT_EQ(test::OpenDescriptors(), descriptors_);
    EXPECT_EQ(gAllocationCount, blocks_);
    std::remove(path_.c_str());
  }

  void Store(const std::string& text) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
  }

  std::string Stored() const {
    std::ostringstream text;
    text << std::ifstream(path_, std::ios::binary).rdbuf();
    return text.str();
  }

  const std::string path_ = (access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir()) +
                            "kalodll_oscl." + std::to_string(getpid());

 private:
  const long descriptors_ = test::OpenDescriptors();
  const int32_t blocks_ = gAllocationCount;
};
