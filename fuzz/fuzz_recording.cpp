// Any text as a recording: it is refused with a message and a place, or what is written of it reads
// as the same recording again.

#include "fuzz/check.h"
#include "simulator/recording.h"

namespace {

std::string Written(const zulisim::Recording& recording) {
  std::string text = zulisim::RecordingHead({"driver"}, recording.clients);
  uint64_t number = 0;
  for (const zulisim::RecordedOperation& operation : recording.operations) {
    text += zulisim::RecordingEntry(++number, operation.raw);
  }
  return text + zulisim::kRecordingEnd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  zulisim::Recording recording;
  try {
    recording = zulisim::ParseRecording(text);
  } catch (const zulisim::RecordingError& error) {
    FUZZ_CHECK(*error.what() != '\0' && error.diagnostic().line > 0);
    return 0;
  }
  const std::string written = Written(recording);
  const zulisim::Recording again = zulisim::ParseRecording(written);
  FUZZ_CHECK(!again.cut && again.operations.size() == recording.operations.size());
  FUZZ_CHECK(Written(again) == written);
  return 0;
}
