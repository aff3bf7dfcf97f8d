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

// Serves a device to all processes through the kernel itself, statically linked ones included. The
// bytes that the kernel has not accepted from a program (a bad address, a transfer of 0 bytes)
// never reach the device; a close does, but its errno cannot reach the program. Any thread.
//
// Worker threads take turns: the one that holds `turn_` receives a request of the kernel. It
// answers a quick one within its turn, so that opens and closes reach the device in the kernel's
// order. Before a read or write, which may wait for a reply, it gives the turn away and, if nobody
// else is idle, starts another worker: a slow device delays only who waits for it.
class KernelServer {
 public:
  enum class Kind { kFile, kCharacterDevice };

  // False in a build without libfuse3, in which none can be made.
  static bool Built();

  // The longest request that the kernel carries in one piece from any buffer.
  static constexpr std::size_t LongestMessage(Kind kind) {
    constexpr std::size_t kPage = 4096;
    return kPage * (kind == Kind::kFile ? 255 : 31);  // an unaligned buffer takes one page more
  }

  // kFile: mounts over the existing file `path`; `everyUser` lets all users reach it, which needs
  // privileges. kCharacterDevice: makes the node `path`, which lies in "/dev". Serves when it
  // returns. Throws std::runtime_error that says what is missing. The device is not owned.
  KernelServer(Device& device, Kind kind, const std::string& path, bool everyUser);
  // Closes what is open, removes mount or node, and stops.
  ~KernelServer();
  KernelServer(const KernelServer&) = delete;
  KernelServer& operator=(const KernelServer&) = delete;

  // False once somebody else has ended it, by an unmount for instance.
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

  std::mutex turn_;  // held by the worker that receives; guards workers_
  std::vector<std::thread> workers_;
  std::atomic<int> idle_{0};  // workers that receive or wait for their turn
  std::atomic<bool> serving_{true};
};

}  // namespace zulisim
