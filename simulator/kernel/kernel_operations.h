#pragma once

#define FUSE_USE_VERSION 34  // the numbers of ioctl requests are int, as in CUSE

#include <cuse_lowlevel.h>
#include <fuse_lowlevel.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>

#include "simulator/device/device.h"

namespace zulisim {

// Answers the kernel's requests by calling a device. The user data of the libfuse session is the
// address of this object. Thread-safe.
class KernelOperations {
 public:
  // Pass one of these to libfuse. `isFile` says which.
  static struct fuse_lowlevel_ops ForFile();
  static struct cuse_lowlevel_ops ForCharacterDevice();

  // The device must outlive this object.
  KernelOperations(Device& device, bool isFile) : device_(device), isFile_(isFile) {}

  // Answers the reads of programs that a signal is about to end. Otherwise the kernel would keep
  // such a program until the device answers.
  void AnswerKilledReads();
  // Closes the open connections. Reads that wait for a reply return.
  void End();

 private:
  static void Init(void* self, struct fuse_conn_info* connection);
  static void Open(fuse_req_t request, struct fuse_file_info* file);
  static void Read(fuse_req_t request, std::size_t length, off_t offset,
                   struct fuse_file_info* file);
  static void Write(fuse_req_t request, const char* bytes, std::size_t length, off_t offset,
                    struct fuse_file_info* file);
  static void Ioctl(fuse_req_t request, int number, void* argument, struct fuse_file_info* file,
                    unsigned flags, const void* in, std::size_t inSize, std::size_t outSize);
  static void Release(fuse_req_t request, struct fuse_file_info* file);
  static void GetAttributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);

  struct PendingRead {
    fuse_req_t request;  // libfuse frees it when it is answered
    pid_t thread;        // the thread that reads
    bool answered = false;
  };

  void Close(std::uint64_t connection);

  Device& device_;
  const bool isFile_;
  std::atomic<bool> ended_{false};
  std::mutex mutex_;  // guards the members below
  std::set<std::uint64_t> open_;
  std::set<PendingRead*> reads_;
};

}  // namespace zulisim
