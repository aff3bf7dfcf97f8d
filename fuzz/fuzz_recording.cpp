// Reads any text as a recording. The reader must reject it with a message and a line, or write it
// so that it reads the same again. A replay must serve a program that makes the recorded calls. A
// scenario is made from the recording or rejected.

#include <algorithm>

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

// Makes the recorded call, with a buffer large enough for the recorded output.
void MakeCall(zulisim::ReplayDevice* device, const zulisim::OperationRecord& record) {
  const std::uint64_t length = std::min<std::uint64_t>(record.length, 1 << 16);
  zulisim::Bytes room(std::max<std::uint64_t>({length, record.input.size(), record.output.size()}));
  std::copy(record.input.begin(), record.input.end(), room.begin());
  void* buffer = record.hasBuffer ? room.data() : nullptr;
  switch (record.operation) {
    case zulisim::Operation::kOpen:
      device->Open(record.openFlags, record.openMode, 3);
      break;
    case zulisim::Operation::kIoctl:
      // Only the connect request has an argument of a known size.
      room.resize(std::max(room.size(), zulisim::IoctlSize(zulisim::kConnectRequest)));
      if (record.request == zulisim::kConnectRequest) {
        device->Ioctl(record.connection, record.request, record.hasBuffer ? room.data() : nullptr);
      }
      break;
    case zulisim::Operation::kRead:
      device->Read(record.connection, buffer, length, false);
      break;
    case zulisim::Operation::kWrite:
      device->Write(record.connection, buffer, length);
      break;
    case zulisim::Operation::kClose:
      device->Close(record.connection, zulisim::CloseReason::kProgramClosed);
      break;
  }
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
  const std::string written = FormatRecording(recording);
  const zulisim::Recording again = zulisim::ParseRecording(written);
  FUZZ_CHECK(!again.cut && again.operations.size() == recording.operations.size());
  FUZZ_CHECK(FormatRecording(again) == written);

  try {
    FUZZ_CHECK(!zulisim::ScenarioOf(recording, "recording").empty());
  } catch (const common::InputError& error) {
    FUZZ_CHECK(*error.what() != '\0');
  }

  zulisim::ReplayDevice device(recording);
  for (const auto& operation : recording.operations) MakeCall(&device, operation);
  device.End();
  FUZZ_CHECK(recording.cut || !device.ReachedCut());
  return 0;
}
