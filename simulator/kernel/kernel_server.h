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
// The worker threads take turns. The worker that holds `turn_` receives the next request of the
// kernel. It performs opens, ioctls and closes before it gives up the turn, so that they reach the
// device in the kernel's order. A read or write may wait for the device. The worker gives up the
// turn before it performs one, and starts another worker if no other is idle.
class KernelServer {
 public:
  enum class Kind { kFile, kCharacterDevice };

  // False in a build without libfuse3, where the constructor throws.
  static bool Built();

  // The longest message that the kernel carries in one piece from any buffer.
  static constexpr std::size_t LongestMessage(Kind kind) {
    constexpr std::size_t kPage = 4096;
    return kPage * (kind == Kind::kFile ? 255 : 31);  // an unaligned buffer takes one page more
  }

  // kFile: mounts over the existing file `path`. With `everyUser`, which needs privileges, all
  // users can open it. kCharacterDevice: creates `path`, a name in "/dev". The device is served
  // when the constructor returns, and is not owned. Throws std::runtime_error.
  KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser);
  // Closes the open connections and removes the mount or node.
  ~KernelServer();
  KernelServer(const KernelServer&) = delete;
  KernelServer& operator=(const KernelServer&) = delete;

  // False after something else has ended the service, such as an unmount.
  bool Serving() const { return serving_.load(); }
  // Returns when every close that happened before the call has reached the device.
  void WaitForCloses();

 private:
  void Mount(bool everyUser);
  void MakeNode();
  void Begin(const std::string& mountPoint);
  void AgreeWithKernel();
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
  std::atomic<int> idle_{0};  // workers that receive, perform a quick request or wait for the turn
  std::atomic<bool> serving_{true};
};

}  // namespace zulisim
