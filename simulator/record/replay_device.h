#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device/decoded_device.h"
#include "simulator/record/recording.h"

namespace zulisim {

// Plays the device's side of a recording: a program that does what the recorded one did gets, byte
// for byte, what that one got. Any thread.
//
// The order that matters is that of each connection. Opens are answered in the order of the
// recording. A connection that they give is matched to a recorded one when it is first used: to the
// earliest that was opened by then, is not matched yet and begins with the same call, so that
// threads that race for their opens find their own. From there on each operation on it must be the
// next one of the recorded connection; operations on different connections may come in any order.
//
// The first operation that is not as recorded is the divergence. From there on, as after the place
// of a cut, the device is lost: every operation but a close fails with ENODEV.
class ReplayDevice : public DecodedDevice {
 public:
  // With `inTime`, an operation takes as long as it did.
  explicit ReplayDevice(Recording recording, bool inTime = false);
  Result Open(int flags, unsigned mode, int descriptor) override;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) override;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length,
              bool nonBlocking) override;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) override;
  Result Close(std::uint64_t connection, CloseReason reason) override;
  std::optional<std::chrono::nanoseconds> ReadableAt(std::uint64_t connection) override;

  // Tells the device that the program has ended: what it left undone is a divergence as well.
  void End();

  struct Divergence {
    std::optional<OperationRecord> expected;  // nothing: the recording had come to its end
    std::size_t number = 0;                   // of `expected` in the recording, from 1 on
    std::optional<OperationRecord> got;       // nothing: the program had come to its end
  };
  std::optional<Divergence> FirstDivergence() const;
  // The program came to where the recording is cut.
  bool ReachedCut() const;
  std::size_t Replayed() const;

 private:
  using Indices = std::deque<std::size_t>;

  // Performs an ioctl, read or write; what it delivers goes to `target`, which may be null.
  Result Transfer(OperationRecord* got, void* target);
  // All of these are called with the lock held. Next lets a read wait without it for the close of
  // the connection when that was recorded before the read had ended.
  const OperationRecord* Next(const OperationRecord& got, std::unique_lock<std::mutex>* lock);
  bool EndsAfterClose(const Indices& indices, const OperationRecord& got) const;
  std::uint64_t Match(const OperationRecord& got);
  const OperationRecord* Compared(Indices* indices, const OperationRecord& got);
  // Completes `got` as recorded, or with the failure after a divergence, and releases the lock.
  Result Complete(OperationRecord* got, const OperationRecord* expected,
                  std::unique_lock<std::mutex>* lock);

  const Recording recording_;
  const bool inTime_;

  mutable std::mutex mutex_;        // guards all that follows
  std::condition_variable closed_;  // a connection, or the device is lost
  Indices opens_;
  std::map<std::uint64_t, Indices> streams_;  // by recorded connection, its operations but the open
  std::vector<std::uint64_t> unmatched_;      // recorded connections that were opened
  std::map<std::uint64_t, std::optional<std::uint64_t>> live_;  // the recorded one, once matched
  std::uint64_t nextConnection_ = 1;
  std::size_t replayed_ = 0;
  bool lost_ = false;
  bool reachedCut_ = false;
  std::optional<Divergence> divergence_;
};

// "at operation 7 (line 42), connection #1 ..." with a hex diff of what was passed; several lines.
std::string DivergenceText(const ReplayDevice::Divergence& divergence);

}  // namespace zulisim
