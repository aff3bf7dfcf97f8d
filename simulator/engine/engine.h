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

// Serves one more ioctl request: reads and writes `argument`, and returns 0 or an errno. The engine
// calls it with its lock held, so it must not call the engine.
using IoctlHandler = std::function<int(void* argument)>;

struct EngineOptions {
  std::vector<Client> clients = DefaultClients();
  bool keepRecords = true;  // for Records() and Requests(); false saves memory in a long run
};

// A model of the security engine and its kernel device. Thread-safe.
//
// Errors, as from a kernel driver:
//   ENODEV     the device was lost after this descriptor was opened
//   ENOTTY     the ioctl request is unknown
//   ENOENT     no client has the GUID of the connect
//   EBUSY      the descriptor is already connected
//   ENOTCONN   a read or write came before the connect
//   EMSGSIZE   the request is longer than the client's maximum
//   EAGAIN     no message is pending for a read. The engine answers during the write, so no message
//              could arrive later. A read waits only for a reply that has a latency or is held, and
//              only when it may block.
//   EFAULT     the buffer is null
//   EBADF      the connection is unknown or closed
// A read takes one whole message and discards what does not fit into its buffer. Reads and writes
// of 0 bytes return 0 and move nothing.
class Engine : public Device {
 public:
  // Throws std::invalid_argument when a client's maximum is above kLongestMessage.
  explicit Engine(EngineOptions options = {});
  Result Perform(OperationRecord record, void* target) override;

  // --- Instructions. ---

  // Sets how `client` answers. Throws std::invalid_argument for an unknown client.
  void SetResponder(const std::string& client, Responder responder);
  // Adds a rule, which precedes all responders. Throws std::invalid_argument for an unknown client.
  void AddReply(const ReplyRule& rule);
  // Releases the replies that are held, and returns their number.
  std::size_t ReleaseReplies();
  // Adds an ioctl request, which works before and after the connect.
  void SetIoctl(std::uint32_t request, IoctlHandler handler);
  // Adds a fault, which counts operations from now on. Throws std::invalid_argument for a fault
  // that can never happen.
  void AddFault(const Fault& fault);
  void ClearFaults();
  // Loses the device now.
  void LoseDevice(const DeviceLoss& loss = {});
  // Lets the next open succeed after a loss with failing opens.
  void RestoreDevice();
  // Shows observers an event between the operations before and after this call.
  void Announce(const std::string& text);

  // --- Results. ---

  const std::vector<Client>& clients() const { return clients_; }
  std::uint64_t Count(Operation operation) const;  // also counts failed operations
  std::size_t OpenDescriptors() const;
  // Return how often each fault, then each reply rule, has happened, in the order of adding.
  std::vector<InstructionCount> InstructionCounts() const;
  std::vector<OperationRecord> Records() const;
  // Returns the requests that the client took, in order.
  std::vector<Bytes> Requests(const std::string& client) const;

 private:
  struct Message {
    Payload payload = Payload::kReply;
    Bytes bytes;
    std::optional<std::uint32_t> commandId;
    std::chrono::steady_clock::time_point ready;  // time until which reads wait
    bool held = false;                            // reads wait until it is released
  };
  using MessageQueue = std::deque<Message>;
  struct Connection {
    int descriptor = -1;
    const Client* client = nullptr;
    bool lost = false;
    std::optional<std::uint32_t> lastCommand;  // of the last request that the client accepted
    MessageQueue pending;
  };
  struct Task {  // an operation in progress
    OperationRecord record;
    Connection* connection = nullptr;
    void* target = nullptr;                        // receives the output
    std::unique_lock<std::mutex>* lock = nullptr;  // held
    std::optional<ShortCount> shortCount;          // the fault of a read or write
    std::optional<ReplyFault> replyFault;          // the fault of a write
  };

  const Client& ClientNamed(const std::string& name) const;

  // The functions below require the lock. Those with a result of bool complete the record, and
  // return false if the operation fails.
  bool PerformOpen(Task* task);
  bool PerformIoctl(Task* task);
  bool PerformConnect(Task* task);
  bool PerformRead(Task* task);
  bool PerformWrite(Task* task);  // releases the lock while a responder runs
  bool PerformClose(Task* task);
  static bool Fail(Task* task, int error, std::string why);
  bool CheckDescriptor(Task* task);
  bool CheckTransfer(Task* task);
  bool ApplyFault(Task* task);
  bool WaitForMessage(Task* task);  // releases the lock while it waits
  // Returns how many of `size` bytes the read or write moves.
  static std::size_t TransferSize(Task* task, std::size_t size);
  // Returns the client, command and connection of the operation, as far as known.
  FaultScope ScopeOf(const Task& task) const;
  void Lose(const DeviceLoss& loss);
  MessageQueue TakeKeptReplies(const Client& client);
  const Client* ClientOf(const Bytes& connectRecord) const;
  void Queue(std::uint64_t connection, const Reply& reply, std::optional<std::uint32_t> command);

  const std::vector<Client> clients_;
  const bool keepRecords_;

  mutable std::mutex mutex_;         // guards the members below
  std::condition_variable changed_;  // signalled when a connection's state or queue changes
  std::map<std::uint64_t, Connection> connections_;
  std::map<std::string, Responder> responders_;  // by client
  std::map<std::uint32_t, IoctlHandler> ioctls_;
  ReplyPlan replies_;
  FaultPlan faults_;
  std::uint64_t failingOpens_ = 0;
  int openError_ = 0;
  std::vector<std::pair<const Client*, MessageQueue>> keptReplies_;  // replies that outlived a loss
  std::array<std::uint64_t, kOperationCount> counts_{};
  std::uint64_t nextConnection_ = 1;
  std::uint64_t nextSequence_ = 1;
  std::vector<OperationRecord> records_;
};

}  // namespace zulisim
