#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/preload/protocol.h"

namespace zulisim {

// Serves a device to programs that carry the preload library, on a local socket. Any thread.
//
// Worker threads share the listening socket. Each accepts one channel, serves its exchanges to its
// end and accepts the next; the last one that was idle starts another before it serves, so that a
// device that takes its time delays nobody else. There are never fewer workers than channels, and
// they stay until the end. One more thread, the watcher, waits for what happens to the programs'
// descriptors without an exchange: the end of the last duplicate, a packet, the time at which a
// late reply can be read.
//
// A channel's socket is its worker's alone; others may only shut it down, under `mutex_`, while it
// is in `channels_`. The sockets of the descriptors belong to `tokens_`: whoever takes a token out
// of it closes the socket. `mutex_` guards what all share and is never held while the device waits,
// so that a worker may wait in a read while another ends its connection.
class DeviceServer {
 public:
  // Creates the socket at `path` and serves from then on. Throws std::system_error. The device is
  // not owned and must outlive the server.
  DeviceServer(Device& device, const std::string& path);
  // Stops, and removes the socket.
  ~DeviceServer();
  DeviceServer(const DeviceServer&) = delete;
  DeviceServer& operator=(const DeviceServer&) = delete;

  // Sees to descriptors of which the last duplicate is gone or on which a packet lies. Happens by
  // itself before each operation.
  void AttendDescriptors();
  // How many programs have loaded the library so far.
  std::uint64_t Attached() const { return attached_.load(); }

 private:
  // A descriptor of the device: our end of the pair of sockets.
  struct Token {
    int socket = -1;
    std::uint64_t connection = 0;
    int flags = 0;          // as opened
    bool readable = false;  // the empty packet that says so is on its way
    bool bypassed = false;  // the program has sent a packet: its reads will bypass us as well
    int unanswered = 0;     // writes since then whose reply is to be sent as a packet
  };
  using Tokens = std::map<std::uint64_t, Token>;  // by inode

  void Work();
  bool StartWorker();
  // The next channel, or -1 at the end of the service. What there is no descriptor for is refused.
  int Accept();
  // Serves one exchange; false when there will be no other.
  bool Serve(int channel, protocol::Patience* patience);
  void Open(int channel, const protocol::Request& request, int socket);
  void Ioctl(int channel, const protocol::Request& request, Bytes payload);
  void Read(int channel, const protocol::Request& request);
  void Write(int channel, const protocol::Request& request, const Bytes& payload);
  void Close(int channel, const protocol::Request& request);
  std::uint64_t ConnectionOf(std::uint64_t inode) const;
  Result FinishClose(std::uint64_t inode);

  void Watch();
  void Attend(std::uint64_t inode, bool ended);
  void TakePacket(std::uint64_t inode, std::size_t size);
  // After a write of a program that bypasses us.
  void AwaitAnswer(std::uint64_t inode, bool comes);
  // Lets every descriptor show whether it can be read, and wakes the watcher when one will be
  // later.
  void ShowReadiness();
  // Answers packets: reads what the programs are to read themselves. The watcher's alone.
  void ReadAhead();
  // These are called with the lock held. The first returns when to look again.
  std::optional<std::chrono::nanoseconds> ShowReadiness(Token* token);
  void Forget(Tokens::iterator token);
  // Ends every connection, whoever holds it.
  void ReleaseAll();

  Device& device_;
  const std::string path_;
  int listener_ = -1;
  int events_ = -1;  // epoll: the tokens' sockets, by inode, and wake_ as 0
  int wake_ = -1;
  std::atomic<std::uint64_t> attached_{0};

  // Held while the events of descriptors are dealt with, so that each is dealt with once and has
  // been when an operation begins. Taken before mutex_.
  std::mutex attending_;

  mutable std::mutex mutex_;  // guards all that follows
  int spare_ = -1;            // given up to refuse what there is no descriptor for
  Tokens tokens_;
  std::set<int> channels_;
  std::vector<std::thread> workers_;
  std::size_t idle_ = 0;
  std::optional<std::chrono::nanoseconds> due_;  // when the watcher is to show readiness again
  bool stopping_ = false;
  std::thread watcher_;
};

}  // namespace zulisim
