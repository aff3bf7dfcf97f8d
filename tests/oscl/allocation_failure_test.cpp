#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <functional>

#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "oscl/whole_file.h"
#include "tests/oscl/registry_fixture.h"

extern "C" void* __libc_malloc(size_t size);

namespace {

// How many allocations succeed before all fail; below 0 none does.
std::atomic<int> allocationsLeft{-1};
std::atomic<bool> memoryRanOut{false};

}  // namespace

// The program's definition goes before libc's, so the library's allocations arrive here.
extern "C" void* malloc(size_t size) {
  if (allocationsLeft == 0) {
    memoryRanOut = true;
    return nullptr;
  }
  if (allocationsLeft > 0) --allocationsLeft;
  return __libc_malloc(size);
}

namespace {

class AllocationFailureTest : public RegistryFixture {
 protected:
  void SetUp() override {
    RegistryFixture::SetUp();
    Store(kFile);
  }

  // Runs `call` again and again, memory running out at its first, second, ... allocation, until it
  // needs no more of them. A failure must have the code, or tell that a stream was not to be had,
  // and leave the file; a stream without a buffer does. `release` frees what the call made.
  void FailEach(
      uint32_t code, const std::function<uint32_t()>& call,
      const std::function<void()>& release = [] {}) {
    const int32_t blocks = gAllocationCount;
    int failing = 0;
    int failed = 0;
    for (bool reached = true; reached; ++failing) {
      memoryRanOut = false;
      allocationsLeft = failing;
      const uint32_t result = call();
      allocationsLeft = -1;
      reached = memoryRanOut;
      EXPECT_THAT(result, testing::AnyOf(0u, code, OSCL_ERROR_REG_FILE_UNREADABLE,
                                         OSCL_ERROR_REG_FILE_UNWRITABLE))
          << "allocation " << failing;
      EXPECT_TRUE(code == E_FAIL || GetLastError() == result);
      EXPECT_TRUE(reached || result == 0u);
      EXPECT_TRUE(result == 0u || Stored() == kFile);
      if (result == code) ++failed;
      release();
      Store(kFile);
      EXPECT_EQ(gAllocationCount, blocks);
    }
    EXPECT_GT(failed, 0);
  }

  static constexpr char kFile[] =
      "[KEY]\n1\nHKEY_CURRENT_USER\\a key of some length\n[VALUE]\na value of some length\n1\nx\n"
      "[KEY]\n2\nHKEY_CURRENT_USER\\another key of some length\n";
  static constexpr char kPath[] = "a key of some length";
  static constexpr char kValue[] = "a value of some length";
};

TEST_F(AllocationFailureTest, a_registry_call_without_memory_is_code_1) {
  HKEY key = 0;
  FailEach(OSCL_ERROR_NO_MEMORY,
           [&] { return RegOpenKeyEx(HKEY_CURRENT_USER, kPath, 0, 0, &key); });
  char data[256];
  FailEach(OSCL_ERROR_NO_MEMORY,
           [&] { return RegGetValue(1, "", kValue, 0, nullptr, data, nullptr); });
  FailEach(OSCL_ERROR_NO_MEMORY,
           [&] { return RegSetValueEx(1, "another value of some length", 0, 1, "text", 5); });
}

TEST_F(AllocationFailureTest, a_helper_without_memory_is_e_fail) {
  UserFeatureValue value = {};
  FailEach(
      E_FAIL, [&] { return OSCL_UserFeature_SetValueName(&value, "n"); },
      [&] { OSCL_UserFeature_ClearValue(&value); });
  UserFeatureKey key = {1, kPath, nullptr, 0};
  FailEach(
      E_FAIL, [&] { return OSCL_UserFeature_ReadValueInit(&key, "n", 7); },
      [&] { OSCL_UserFeature_DeleteValues(&key); });
  char text[] = "a";
  value.type = USER_FEATURE_MULTI_STRING;
  FailEach(
      E_FAIL, [&] { return OSCL_UserFeature_SetMultiStringValue(&value, text, 2); },
      [&] {
        FreeMem(value.data.strings);
        value.data.strings = nullptr;
      });
}

TEST_F(AllocationFailureTest, nothing_leaks_wherever_memory_runs_out) {
  UserFeatureKey key = {1, kPath, nullptr, 0};
  UserFeatureNotifyKey watch = {1, kPath, 0, nullptr};
  const int32_t blocks = gAllocationCount;
  for (int failing = 0; failing < 60; ++failing) {
    for (const uint32_t kind : {USER_FEATURE_STRING, USER_FEATURE_MULTI_STRING}) {
      allocationsLeft = failing;
      OSCL_UserFeature_ReadValue(nullptr, &key, kValue, kind);
      allocationsLeft = -1;
      OSCL_UserFeature_DeleteValues(&key);
    }
    allocationsLeft = failing;
    OSCL_UserFeature_EnableNotification(nullptr, &watch);
    uint32_t size = 0;
    void* content = OSCL_ReadFile(path_.c_str(), nullptr, &size);
    allocationsLeft = -1;
    FreeMem(content);
    FreeMem(watch.notifyData);
    watch.notifyData = nullptr;
    EXPECT_EQ(gAllocationCount, blocks);
  }
  void* block = AllocMem(SIZE_MAX);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(GetLastError(), OSCL_ERROR_NO_MEMORY);
}

}  // namespace
