#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/device/decoded_device.h"
#include "simulator/record/recording.h"

namespace zulisim {

// Plays the device's side of a recording. A program that does what the recorded one did gets, byte
// for byte, what that one got. Thread-safe.
//
// Opens are answered in the order of the recording. All other operations have an order only within
// their connection. Connections whose histories are the same so far are interchangeable: a
// connection of the program stands for all recorded ones that began like it, until its next
// operation tells them apart. So threads may race, each with its connection. In a recording whose
// opens came from one thread, only connections that were opened by then are considered.
//
// The first operation that differs from the recording is the divergence. From there on, and from
// the place of a cut on, the device is lost: every operation except a close fails with ENODEV.
class ReplayDevice : public DecodedDevice {
 public:
  // With `inTime`, an operation takes as long as it took in the recording.
  explicit ReplayDevice(Recording recording, bool inTime = false);
  Result Open(int flags, unsigned mode, int descriptor) override;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) override;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length,
              bool nonBlocking) override;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) override;
  Result Close(std::uint64_t connection, CloseReason reason) override;

  // Call it when the program has ended: what the program left out is a divergence too.
  void End();

  struct Divergence {
    std::optional<OperationRecord> expected;  // nothing at the end of the recording
    std::optional<OperationRecord> got;       // nothing at the end of the program
  };
  std::optional<Divergence> FirstDivergence() const;
  // Returns true when the program reached the place where the recording is cut.
  bool ReachedCut() const;
  std::size_t Replayed() const;

 private:
  // A point in the histories of connections. Those with the same operations and results share it.
  struct Node {
    std::deque<std::size_t> operations;  // that lead here and were not replayed yet, in order
    std::vector<std::unique_ptr<Node>> next;
    bool isEnd = false;  // of the recorded history of a connection
  };
  struct Live {  // a connection of the program
    Node* node;
    bool closed = false;
  };
  struct Choice {
    Node* node = nullptr;
    std::size_t operation = 0;
  };

  void AddToHistory(std::size_t operation, Node** node) const;
  // Performs an ioctl, read or write; what it delivers goes to `target`, which may be null.
  Result Transfer(OperationRecord* got, void* target);

  // The rest is called with the lock held. Choose returns the earliest recorded operation that can
  // come next; with `got`, only one with the same arguments.
  std::optional<Choice> Choose(const Node& from, const OperationRecord* got) const;
  // Returns the recorded operation, or null when `got` is not as recorded. Without the lock, lets a
  // read wait for the close of its connection when the recorded read ended after the close.
  const OperationRecord* Next(const OperationRecord& got, std::unique_lock<std::mutex>* lock);
  bool EndsAfterClose(const Node& node, const OperationRecord& got) const;
  const OperationRecord* Accept(std::size_t operation);
  void Diverge(std::optional<std::size_t> expected, const OperationRecord* got, bool mayBeCut);
  // Completes `got` as recorded, or with the failure after a divergence, and releases the lock.
  Result Complete(OperationRecord* got, const OperationRecord* expected,
                  std::unique_lock<std::mutex>* lock);

  const Recording recording_;
  const bool inTime_;
  bool opensRace_ = false;

  mutable std::mutex mutex_;        // guards all that follows
  std::condition_variable closed_;  // a connection, or the device is lost
  std::deque<std::size_t> opens_;   // still to come
  Node start_;                      // of every connection
  Node strays_;                     // the history of operations without a connection
  std::set<std::uint64_t> opened_;  // recorded connections
  std::map<std::uint64_t, Live> live_;
  std::vector<bool> done_;  // by operation
  std::uint64_t nextConnection_ = 1;
  std::size_t replayed_ = 0;
  bool lost_ = false;
  bool reachedCut_ = false;
  std::optional<Divergence> divergence_;
};

// Returns several lines: "at operation 7 (line 8) on connection #1", what was expected, what came,
// and the bytes in which they differ.
std::string DivergenceText(const ReplayDevice::Divergence& divergence);

}  // namespace zulisim
