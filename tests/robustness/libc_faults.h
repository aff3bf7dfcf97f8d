#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

// Makes one call of libc fail that the library under test makes, and no other: the linkage table of
// the library, and of a shared C++ runtime, leads through here. A call is counted only while the
// library runs on behalf of a test and is not inside the simulated device or a test's sink.
namespace faults {

#define ROBUSTNESS_CALLS(X)                                                                  \
  X(kDeviceOpen, "open dev")                                                                 \
  X(kDeviceIoctl, "ioctl dev") X(kDeviceRead, "read dev") X(kDeviceWrite, "write dev")       \
      X(kDeviceClose, "close dev") X(kOpen, "open") X(kRead, "read") X(kWrite, "write")      \
          X(kClose, "close") X(kSeek, "lseek") X(kStat, "fstat") X(kFopen, "fopen")          \
              X(kStreamRead, "fread") X(kStreamWrite, "fwrite") X(kFclose, "fclose")         \
                  X(kAlloc, "malloc") X(kLock, "lock") X(kUnlock, "unlock")                  \
                      X(kMutexInit, "mtx init") X(kMutexDestroy, "mtx destr")                \
                          X(kClockResolution, "clk res") X(kClockTime, "clk time")           \
                              X(kDlopen, "dlopen") X(kDlsym, "dlsym") X(kDlclose, "dlclose") \
                                  X(kSleep, "usleep") X(kLocaltime, "localtime")

enum class Call {
#define ROBUSTNESS_CALL(name, title) name,
  ROBUSTNESS_CALLS(ROBUSTNESS_CALL)
#undef ROBUSTNESS_CALL
      kCount
};

// Lays the linkage tables through here, once. False when the library's cannot be found.
bool Install();

// From here to Disarm calls count, and the one with that number (from 1 on) of `call` fails with
// `error`, after `onStrike`. What releases something releases it all the same, as libc's calls do.
void Arm(Call call, uint32_t number, int error, std::function<void()> onStrike = {});
// True when the failure has struck.
bool Disarm();

// For code of the test that the library calls back.
class Outside {
 public:
  Outside();
  ~Outside();
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;

 private:
  const bool saved_;
};

// Closes the descriptors of the device that the library has left open, and says how many.
size_t CloseDevices();

// How often the library gave back a mutex that it had not got.
int WrongUnlocks();

}  // namespace faults
