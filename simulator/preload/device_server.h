#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "simulator/device/device.h"
#include "simulator/preload/protocol.h"

namespace zulisim {

// Serves a device to programs that have loaded the preload library, on a local socket. protocol.h
// describes the threads and sockets. Thread-safe.
class DeviceServer {
 public:
  // Creates the socket at `path` and serves from then on. Throws std::system_error. The device is
  // not owned and must outlive the server.
  DeviceServer(Device& device, const std::string& path);
  // Closes all connections and removes the socket.
  ~DeviceServer();
  DeviceServer(const DeviceServer&) = delete;
  DeviceServer& operator=(const DeviceServer&) = delete;

  // Closes the connections whose descriptors no process has open any more. When the service ends,
  // closes all connections. Runs before each operation.
  void CloseAbandoned();
  // Returns true if a program has loaded the library.
  bool Loaded() const { return loaded_; }
  // Returns true if the server noticed a system call on a descriptor of the device that bypassed
  // the hooks. It does not notice every such call.
  bool Bypassed() const { return bypassed_; }

 private:
  // The server's end of a descriptor, which it owns.
  struct Descriptor {
    int socket = -1;
    int closes = 0;  // number of closes that have begun and not ended
  };
  using Descriptors = std::map<std::uint64_t, Descriptor>;  // by connection

  void AcceptChannels();
  void ServeChannel(int channel);
  // Serves one exchange. `buffer` has room for kLongestMessage bytes. Returns false if the program
  // has closed the channel.
  bool ServeExchange(int channel, unsigned char* buffer);
  // Calls the device. `buffer` contains the payload of the request, and receives the payload of the
  // response.
  Result Perform(int channel, protocol::Message* message, unsigned char* buffer);
  Result Open(int channel, const protocol::Message& request);
  // Handles kClosing or kClosed, the two exchanges of a close.
  Result Close(std::uint64_t connection, bool begins);
  // Removes a descriptor from the map and closes it. Requires the lock.
  void Forget(Descriptors::iterator descriptor);

  Device& device_;
  const std::string path_;
  const int listener_;
  std::atomic<bool> loaded_{false};
  std::atomic<bool> bypassed_{false};
  // Held while abandoned connections are closed, so that no operation begins before that is done.
  // Locked before mutex_.
  std::mutex closing_;
  std::mutex mutex_;  // guards the members below; never held during an operation of the device
  Descriptors descriptors_;
  std::set<int> channels_;  // the thread of a channel closes and removes it
  std::condition_variable channelEnded_;
  bool stopping_ = false;
  std::thread acceptor_;
};

}  // namespace zulisim
