#pragma once

#include <string>
#include <utility>

#include "common/colours.h"
#include "simulator/device/operation.h"
#include "simulator/output/output_file.h"

namespace zulisim {

struct TranscriptStyle {
  common::Colours colours;
  // Name a descriptor by the engine's own number, "#1", which is the same however a program is
  // attached, and not by the program's, "fd 5", which is the default where it is known.
  bool connectionNumbers = false;
};

// One line about one operation, without a line end:
//   "   4  fd 5  KALO  read     64 of 4096 bytes  command 0x10  status 0x0"
//   "   5  fd 5  KALO  write    failed  ENODEV  64 bytes  (the device is lost at write 2)"
std::string TranscriptLine(const OperationRecord& record, const TranscriptStyle& style = {});

// Hands out a line, with its end, as each operation ends.
class Transcript : public OperationObserver {
 public:
  Transcript(TextSink sink, TranscriptStyle style) : sink_(std::move(sink)), style_(style) {}
  void OnOperation(const OperationRecord& record) override {
    sink_(TranscriptLine(record, style_) + "\n");
  }

 private:
  const TextSink sink_;
  const TranscriptStyle style_;
};

}  // namespace zulisim
