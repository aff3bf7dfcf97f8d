#pragma once

#define FUSE_USE_VERSION 35

#include <cuse_lowlevel.h>
#include <fuse_lowlevel.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <mutex>
#include <set>

#include "simulator/device/device.h"

namespace zulisim {

// Answers the kernel's requests with a device. The address of an object of this class is the user
// data of the libfuse session. Any thread.
class KernelOperations {
 public:
  // Exactly one of both is passed to libfuse: `isFile` says which.
  static struct fuse_lowlevel_ops ForFile();
  static struct cuse_lowlevel_ops ForCharacterDevice();

  // The device is not owned.
  KernelOperations(Device& device, bool isFile) : device_(device), isFile_(isFile) {}

  // Blocks until the kernel has agreed to serve; false when it never will.
  bool Ready() { return ready_.get_future().get(); }
  // The first call counts.
  void SetReady(bool ready);
  // Closes what is open; a read that waits for a reply returns.
  void End();

 private:
  static void Init(void* self, struct fuse_conn_info* connection);
  static void InitDone(void* self);
  static void Open(fuse_req_t request, struct fuse_file_info* file);
  static void Read(fuse_req_t request, std::size_t length, off_t offset,
                   struct fuse_file_info* file);
  static void Write(fuse_req_t request, const char* bytes, std::size_t length, off_t offset,
                    struct fuse_file_info* file);
  static void Ioctl(fuse_req_t request, std::uint32_t number, void* argument,
                    struct fuse_file_info* file, const void* in, std::size_t inSize,
                    std::size_t outSize);
  static void Release(fuse_req_t request, struct fuse_file_info* file);
  static void GetAttributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);

  void Close(std::uint64_t connection);

  Device& device_;
  const bool isFile_;
  std::promise<bool> ready_;
  std::once_flag readySet_;
  std::atomic<bool> ended_{false};
  std::mutex mutex_;  // guards what follows
  std::set<std::uint64_t> open_;
};

}  // namespace zulisim
