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
// describes the threads and sockets. Any thread.
class DeviceServer {
 public:
  // Creates the socket at `path` and serves from then on. Throws std::system_error. The device is
  // not owned and must outlive the server.
  DeviceServer(Device& device, const std::string& path);
  // Closes all connections and removes the socket.
  ~DeviceServer();
  DeviceServer(const DeviceServer&) = delete;
  DeviceServer& operator=(const DeviceServer&) = delete;

  // Closes the connections of descriptors that no process has any more; when the service ends, all.
  // Runs before each operation.
  void CloseAbandoned();
  // Whether a program has loaded the library.
  bool Loaded() const { return loaded_; }
  // Whether a program made a system call on a descriptor of the device that no hook saw. Not every
  // such call is noticed.
  bool Bypassed() const { return bypassed_; }

 private:
  // The server's end of a descriptor, which it owns.
  struct Descriptor {
    int socket = -1;
    int closes = 0;  // that have begun and not ended
  };
  using Descriptors = std::map<std::uint64_t, Descriptor>;  // by connection

  void AcceptChannels();
  void ServeChannel(int channel);
  // Serves one exchange. `buffer` has room for kLongestMessage bytes. False at the channel's end.
  bool ServeExchange(int channel, unsigned char* buffer);
  // Calls the device. The payload of the request is in `buffer`, and that of the response will be.
  Result Perform(int channel, protocol::Message* message, unsigned char* buffer);
  Result Open(int channel, const protocol::Message& request);
  // The first or second part of a close.
  Result Close(std::uint64_t connection, bool begins);
  // Takes a descriptor out and closes it. With the lock held.
  void Forget(Descriptors::iterator descriptor);

  Device& device_;
  const std::string path_;
  const int listener_;
  std::atomic<bool> loaded_{false};
  std::atomic<bool> bypassed_{false};
  // Held while abandoned connections are closed, so that each operation begins after that. Taken
  // before mutex_.
  std::mutex closing_;
  std::mutex mutex_;  // guards what follows; never held while the device works
  Descriptors descriptors_;
  std::set<int> channels_;  // each has a thread, which closes it and takes it out
  std::condition_variable channelEnded_;
  bool stopping_ = false;
  std::thread acceptor_;
};

}  // namespace zulisim
