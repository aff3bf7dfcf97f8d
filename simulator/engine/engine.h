#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"
#include "simulator/device/operation.h"
#include "simulator/engine/fault.h"
#include "simulator/engine/reply_plan.h"

namespace zulisim {

// Serves an additional ioctl request: reads and writes `argument`, returns 0 or an errno. Runs
// under the engine's lock and must not call the engine.
using IoctlHandler = std::function<int(void* argument)>;

struct EngineOptions {
  std::vector<Client> clients = DefaultClients();
  bool keepRecords = true;  // for Records() and Requests(); turn it off for long runs
};

// A model of the security engine and its kernel device. Thread-safe.
//
// Errors, as a kernel driver gives them:
//   ENODEV     the device was lost after this descriptor was opened
//   ENOTTY     the ioctl request is unknown
//   ENOENT     no client has the GUID of a connect
//   EBUSY      a connect on a descriptor that is connected already
//   ENOTCONN   a transfer before the connect
//   EMSGSIZE   a request longer than the client's maximum
//   EAGAIN     a read with no message pending: the engine answers during the write, so a read
//              waits only for a reply that has a latency or is held. Also a non-blocking read
//              that would have to wait.
//   EFAULT     a null buffer
//   EBADF      the connection is unknown or closed
// A read takes one whole message. The bytes that do not fit its buffer are lost.
// Reads and writes of 0 bytes return 0 and move nothing.
class Engine : public Device {
 public:
  // Throws std::invalid_argument when a client's maximum is above kLongestMessage.
  explicit Engine(EngineOptions options = {});

  Result Open(int flags, unsigned mode, int descriptor) override;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) override;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length,
              bool nonBlocking) override;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) override;
  Result Close(std::uint64_t connection, CloseReason reason) override;

  // --- Instructions. ---

  // Sets how `client` answers `command`; without a command, how it answers the commands that have
  // no responder. Throws std::invalid_argument for an unknown client.
  void SetResponder(const std::string& client, std::uint32_t command, Responder responder);
  void SetResponder(const std::string& client, Responder responder);
  // The same as a rule, which has precedence over responders.
  void AddReply(const ReplyRule& rule);
  // Releases the held replies and returns their number.
  std::size_t ReleaseReplies();
  // Adds an ioctl request, which works before and after the connect.
  void SetIoctl(std::uint32_t request, IoctlHandler handler);
  // Throws std::invalid_argument when the fault is impossible.
  void AddFault(const Fault& fault);
  // The same for a fault that counts from now on.
  void AddFaultFromNow(const Fault& fault);
  void ClearFaults();
  // Loses the device now.
  void LoseDevice(const DeviceLoss& loss = {});
  // Ends the loss: the next open succeeds.
  void RestoreDevice();
  // Shows observers an event between the operations before and after this call.
  void Announce(const std::string& text);
  // Shorthands: the next operation of the kind, and the `times - 1` after it.
  void FailNext(Operation operation, int error, std::uint64_t times = 1);
  void ShortenNext(Operation operation, std::size_t count);
  void LoseDeviceAtNext(Operation operation, std::uint64_t times = 1, const DeviceLoss& loss = {});

  // --- What has happened. ---

  const std::vector<Client>& clients() const { return clients_; }
  std::uint64_t Count(Operation operation) const;  // failed ones included
  std::size_t OpenDescriptors() const;
  // How often each fault and each reply rule has happened: faults first, in the order in which they
  // were added.
  std::vector<Tally> Tallies() const;
  std::vector<OperationRecord> Records() const;
  void ClearRecords();  // counts go on
  // The requests that the client took, byte for byte, in order.
  std::vector<Bytes> Requests(const std::string& client) const;

 private:
  struct Message {
    Payload payload = Payload::kReply;
    Bytes bytes;
    std::optional<std::uint32_t> commandId;
    std::chrono::steady_clock::time_point ready;  // no read gets it before
    bool held = false;                            // nor before it is released
  };
  using MessageQueue = std::deque<Message>;
  struct Connection {
    int descriptor = -1;
    const Client* client = nullptr;
    bool lost = false;
    std::optional<std::uint32_t> lastCommand;  // of the requests that it took
    MessageQueue pending;
  };
  struct Task {  // one operation that is under way
    OperationRecord record;
    Connection* connection = nullptr;
    std::optional<ShortCount> cut;    // of a read or write
    std::optional<ReplyFault> reply;  // of a write, in place of the client's own
  };

  const Client& ClientNamed(const std::string& name) const;

  // Call all that follow with the lock held.
  Task Begin(OperationRecord record);
  Result Finish(Task* task, std::int64_t value);
  Result Fail(Task* task, int error, std::string why);
  // Each returns a failure when the descriptor's state or a fault demands one.
  std::optional<Result> CheckDescriptor(Task* task);
  std::optional<Result> CheckTransfer(Task* task);
  std::optional<Result> ApplyFault(Task* task);
  // How many of `size` bytes the read or write moves.
  static std::size_t Moved(Task* task, std::size_t size);
  // The operation's client, command and connection, for comparing with faults.
  FaultScope ScopeOf(const Task& task) const;
  // Waits until a message is ready, without the lock. Returns the failure when none will be, or
  // when the read must not wait.
  std::optional<Result> AwaitMessage(Task* task, bool nonBlocking,
                                     std::unique_lock<std::mutex>* lock);
  Result Connect(Task* task, void* record);
  void Lose(const DeviceLoss& loss);
  MessageQueue TakeCarried(const Client& client);
  Responder ResponderFor(const Client& client, std::optional<std::uint32_t> command) const;
  const Client* ClientOf(const Bytes& connectRecord) const;
  void Queue(std::uint64_t connection, const Reply& reply, std::optional<std::uint32_t> command);

  const std::vector<Client> clients_;
  const bool keepRecords_;

  mutable std::mutex mutex_;         // guards all that follows
  std::condition_variable changed_;  // a connection was lost or closed, or gave a message away
  std::map<std::uint64_t, Connection> connections_;
  std::map<std::pair<std::string, std::optional<std::uint32_t>>, Responder> responders_;
  std::map<std::uint32_t, IoctlHandler> ioctls_;
  ReplyPlan replies_;
  FaultPlan faults_;
  std::uint64_t failingOpens_ = 0;
  int openError_ = 0;
  std::vector<std::pair<const Client*, MessageQueue>> carried_;  // replies that outlived a loss
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t nextConnection_ = 1;
  std::uint64_t nextSequence_ = 1;
  std::vector<OperationRecord> records_;
};

}  // namespace zulisim
