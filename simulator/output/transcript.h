#pragma once

#include <ostream>
#include <string>

#include "simulator/device/operation.h"

namespace zulisim {

struct TranscriptStyle {
  bool colour = false;
  // Name a descriptor by the engine's own number, "#1", which is the same however a program is
  // attached, and not by the program's, "fd 5", which is the default where it is known.
  bool connectionNumbers = false;
};

// One line about one operation, without a line end:
//   "   4  fd 5  KALO  read     64 of 4096 bytes  command 0x10  status 0x0"
//   "   5  fd 5  KALO  write    failed  ENODEV  64 bytes  (the device is lost at write 2)"
std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style = {});

// Writes each line to a stream as its operation ends, and flushes it. The stream is not owned.
class Transcript : public OperationObserver {
 public:
  explicit Transcript(std::ostream* out, TranscriptStyle style = {}) : out_(out), style_(style) {}
  void OnOperation(const OperationRecord& record) override;

 private:
  std::ostream* out_;
  TranscriptStyle style_;
};

}  // namespace zulisim
