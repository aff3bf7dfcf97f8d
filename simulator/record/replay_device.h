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

// Replays the device's side of a recording. A program that makes the recorded calls gets the
// recorded results, byte for byte. Thread-safe.
//
// Opens must come in the recorded order. Other operations must keep their order only within their
// connection. Connections that have done the same so far are interchangeable: a connection of the
// program matches every recorded one that began in the same way, until its next operation decides
// between them. So threads with one connection each may run in any order. If a single thread made
// all recorded opens, a connection matches only the recorded ones that were already open.
//
// The first operation that differs from the recording is the divergence. After a divergence, and
// after the end of a recording that was cut off, the device is lost: every operation except a close
// fails with ENODEV.
class ReplayDevice : public DecodedDevice {
 public:
  // With `inTime`, an operation takes as long as it took in the recording.
  explicit ReplayDevice(Recording recording, bool inTime = false);

  // Call this function after the program has ended. If it did not make all recorded operations,
  // that is a divergence too.
  void End();

  // Describes the first divergence in several lines: the place ("at operation 7 (line 8) on
  // connection #1"), the expected operation, the actual one, and the bytes that differ. Empty if
  // there is none.
  std::string Divergence() const;
  // Returns true if the program reached the end of a recording that was cut off.
  bool ReachedCut() const;

 private:
  // A state of a connection, reached by the operations so far. Connections with the same operations
  // and results share one node.
  struct Node {
    // The recorded operations that lead here and are not yet replayed, in order.
    std::deque<std::size_t> operations;
    std::vector<std::unique_ptr<Node>> next;
    bool isEnd = false;  // a recorded connection ends here
  };
  struct Live {  // an open connection of the program
    Node* node;
    bool closed = false;
  };
  struct Choice {
    Node* node = nullptr;
    std::size_t operation = 0;
  };

  // Moves `node` to the node after the operation.
  void AddToHistory(std::size_t operation, Node** node) const;
  bool Execute(OperationRecord* got, void* target) override;

  // The functions below require the lock. Choose returns the earliest recorded operation that can
  // come next. If `got` is not null, only operations with the same arguments count.
  std::optional<Choice> Choose(const Node& from, const OperationRecord* got) const;
  // Both functions return the recorded operation, or null if `got` differs from it. If the recorded
  // read ended after the close of its connection, Next releases the lock and waits for that close.
  const OperationRecord* NextOpen(OperationRecord* got);
  const OperationRecord* Next(const OperationRecord& got, Live* live,
                              std::unique_lock<std::mutex>* lock);
  bool EndsAfterClose(const Node& node, const OperationRecord& got) const;
  void Diverge(std::optional<std::size_t> expected, const OperationRecord* got, bool mayBeCut);

  const Recording recording_;
  const bool inTime_;
  bool opensRace_ = false;

  mutable std::mutex mutex_;        // guards the members below
  std::condition_variable closed_;  // signalled when a connection is closed or the device is lost
  std::deque<std::size_t> opens_;   // recorded opens that have not happened yet
  Node start_;                      // the state of a new connection
  std::set<std::uint64_t> opened_;  // recorded connections
  std::map<std::uint64_t, Live> live_;
  std::vector<bool> done_;  // by operation
  std::uint64_t nextConnection_ = 1;
  bool lost_ = false;
  bool reachedCut_ = false;
  std::string divergence_;
};

}  // namespace zulisim
