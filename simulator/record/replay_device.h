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
// connection. Connections with the same history so far are interchangeable: a connection of the
// program matches all recorded ones that began like it, until its next operation tells them apart.
// So threads may race, each with its connection. When one thread made all recorded opens, a
// connection matches only recorded ones that were open by then.
//
// The first operation that differs from the recording is the divergence. After it, and after the
// end of a cut recording, the device is lost: every operation except a close fails with ENODEV.
class ReplayDevice : public DecodedDevice {
 public:
  // With `inTime`, an operation takes as long as it took in the recording.
  explicit ReplayDevice(Recording recording, bool inTime = false);

  // Call it when the program has ended: a recorded operation that is missing is a divergence too.
  void End();

  struct Divergence {
    std::optional<OperationRecord> expected;  // nothing at the end of the recording
    std::optional<OperationRecord> got;       // nothing at the end of the program
  };
  std::optional<Divergence> FirstDivergence() const;
  // Returns true when the program reached the end of a cut recording.
  bool ReachedCut() const;
  std::size_t Replayed() const;

 private:
  // A point in the histories of connections. Those with the same operations and results share it.
  struct Node {
    std::deque<std::size_t> operations;  // lead here; not replayed yet; in order
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
  bool Perform(OperationRecord* got, void* target, bool nonBlocking) override;

  // The rest is called with the lock held. Choose returns the earliest recorded operation that can
  // come next; with `got`, only one with the same arguments.
  std::optional<Choice> Choose(const Node& from, const OperationRecord* got) const;
  // Both return the recorded operation, or null when `got` is not as recorded. Next lets a read
  // wait, without the lock, for the close of its connection when the recorded read ended after it.
  const OperationRecord* NextOpen(OperationRecord* got);
  const OperationRecord* Next(const OperationRecord& got, Live* live,
                              std::unique_lock<std::mutex>* lock);
  bool EndsAfterClose(const Node& node, const OperationRecord& got) const;
  const OperationRecord* Accept(std::size_t operation);
  void Diverge(std::optional<std::size_t> expected, const OperationRecord* got, bool mayBeCut);

  const Recording recording_;
  const bool inTime_;
  bool opensRace_ = false;

  mutable std::mutex mutex_;        // guards all that follows
  std::condition_variable closed_;  // a connection, or the device is lost
  std::deque<std::size_t> opens_;   // still to come
  Node start_;                      // of every connection
  std::set<std::uint64_t> opened_;  // recorded connections
  std::map<std::uint64_t, Live> live_;
  std::vector<bool> done_;  // by operation
  std::uint64_t nextConnection_ = 1;
  std::size_t replayed_ = 0;
  bool lost_ = false;
  bool reachedCut_ = false;
  std::optional<Divergence> divergence_;
};

// Returns several lines: "at operation 7 (line 8) on connection #1", the expected operation, the
// actual one, and the bytes in which they differ.
std::string DivergenceText(const ReplayDevice::Divergence& divergence);

}  // namespace zulisim
