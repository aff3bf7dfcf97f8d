#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/preload/protocol.h"

namespace zulisim {

// Serves a device to programs that carry the preload library, on a local socket. Any thread.
//
// Worker threads share the listening socket. Each accepts one exchange, serves it to its end and
// accepts the next; the last one that was idle starts another before it serves, so that a device
// that takes its time delays nobody else. There are never fewer workers than exchanges under way,
// and they stay until the end. `mutex_` guards what they share and is never held while the device
// works, so that a worker may wait in a read while another ends its connection.
class DeviceServer {
 public:
  // Creates the socket at `path` and serves from then on. Throws std::system_error. The device is
  // not owned and must outlive the server.
  DeviceServer(Device& device, const std::string& path);
  // Stops, and removes the socket.
  ~DeviceServer();
  DeviceServer(const DeviceServer&) = delete;
  DeviceServer& operator=(const DeviceServer&) = delete;

  // Closes the connections whose programs have ended. Happens by itself before each operation.
  void ReleaseEnded();
  // How many programs have loaded the library so far.
  std::uint64_t Attached() const { return attached_.load(); }

 private:
  // A descriptor of the device: our end of the socket that is the program's.
  struct Token {
    int socket = -1;
    std::uint64_t connection = 0;
    bool closing = false;  // its end will be a close, and a thread waits for it
  };

  void Work();
  void StartWorker();
  // True when an open has kept the channel: it is the program's descriptor from then on.
  bool Serve(int channel);
  bool Open(int channel, const protocol::Request& request);
  void Ioctl(int channel, const protocol::Request& request, Bytes payload);
  void Read(int channel, const protocol::Request& request);
  void Write(int channel, const protocol::Request& request, const Bytes& payload);
  void Close(int channel, const protocol::Request& request);
  std::uint64_t ConnectionOf(std::uint64_t inode) const;
  Result FinishClose(std::uint64_t inode);
  // Ends every connection, whoever holds it.
  void ReleaseAll();

  Device& device_;
  const std::string path_;
  int listener_ = -1;
  std::atomic<std::uint64_t> attached_{0};

  mutable std::mutex mutex_;  // guards all that follows; never held while the device answers
  std::map<std::uint64_t, Token> tokens_;  // by inode
  std::set<int> channels_;                 // exchanges under way
  std::vector<std::thread> workers_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

}  // namespace zulisim
