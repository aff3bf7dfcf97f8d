// Reads any text as a recording. The reader must reject it with a message and a line, or write it
// so that it reads the same again. A replay must serve a program that makes the recorded calls. A
// scenario is made from the recording or rejected.

#include "fuzz/check.h"
#include "simulator/engine/engine.h"
#include "simulator/record/recording.h"
#include "simulator/record/recording_scenario.h"
#include "simulator/record/replay_device.h"

namespace {

std::string FormatRecording(const zulisim::Recording& recording) {
  std::string text = zulisim::HeaderLine(recording.header);
  for (const auto& operation : recording.operations) text += zulisim::OperationLine(operation);
  return text + zulisim::kCompleteLine;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  zulisim::Recording recording;
  try {
    recording = zulisim::ParseRecording(text);
  } catch (const zulisim::RecordingError& error) {
    FUZZ_CHECK(*error.what() != '\0' && error.diagnostic.line > 0);
    return 0;
  }
  const std::string written = FormatRecording(recording);
  const zulisim::Recording again = zulisim::ParseRecording(written);
  FUZZ_CHECK(!again.cut && FormatRecording(again) == written);

  Accepts<common::InputError>(
      [&] { FUZZ_CHECK(!zulisim::ScenarioOf(recording, "recording").empty()); });

  static zulisim::Bytes buffer(zulisim::kLongestMessage);
  zulisim::ReplayDevice device(recording);
  for (const zulisim::OperationCall& made : recording.operations) {
    zulisim::OperationRecord call;
    static_cast<zulisim::OperationCall&>(call) = made;
    device.Perform(call, call.hasBuffer ? buffer.data() : nullptr);
  }
  device.End();
  FUZZ_CHECK(recording.cut || !device.ReachedCut());
  return 0;
}
