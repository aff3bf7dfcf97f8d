#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/device/device.h"

struct fuse_buf;
struct fuse_session;

namespace zulisim {

class KernelOperations;

// Serves a device to all processes, including statically linked ones, through the kernel.
// Thread-safe.
//
// The worker threads take turns. The worker that holds `turn_` receives the kernel's next request.
// It performs opens, ioctls and closes before it releases the turn, so they reach the device in the
// kernel's order. A read or write may wait for the device, so the worker releases the turn before
// it performs one, and starts another worker if no other is idle.
class KernelServer {
 public:
  enum class Kind { kFile, kCharacterDevice };

  // Returns false in a build without libfuse3, in which the constructor throws.
  static bool Built();

  // The length in bytes of the longest message that the kernel never splits, whatever the buffer.
  static constexpr std::size_t LongestMessage(Kind kind) {
    constexpr std::size_t kPage = 4096;
    return kPage * (kind == Kind::kFile ? 255 : 31);  // an unaligned buffer needs one more page
  }

  // kFile: mounts over the existing file `path`. With `everyUser`, which needs privileges, all
  // users can open it. kCharacterDevice: creates `path`, a name in "/dev". Programs can open the
  // device when the constructor returns. The device must outlive this object. Throws
  // std::runtime_error.
  KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser);
  // Closes the open connections and removes the mount or node.
  ~KernelServer();
  KernelServer(const KernelServer&) = delete;
  KernelServer& operator=(const KernelServer&) = delete;

  // Returns false after something else ended the service, such as an unmount.
  bool Serving() const { return serving_.load(); }
  // Returns when every close that happened before the call has reached the device.
  void WaitForCloses();

 private:
  void Mount(Kind kind, bool everyUser);
  void AnswerInit();
  bool StartWorker();
  void Work();
  bool Receive(struct fuse_buf* buffer);
  void Stop();

  const std::string path_;
  const std::unique_ptr<KernelOperations> operations_;
  struct fuse_session* session_ = nullptr;
  int stop_ = -1;

  std::mutex turn_;  // held by the worker that receives; guards `workers_`
  std::vector<std::thread> workers_;
  std::atomic<int> idle_{
      0};  // workers that are receiving, performing a quick request or waiting for the turn
  std::atomic<bool> serving_{true};
};

}  // namespace zulisim
