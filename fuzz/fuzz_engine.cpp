// Any reply of the engine, any errno, any order of calls and losses of the device: against the
// entry points of both generations.

#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <set>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "fuzz/check.h"
#include "log/logger.h"
#include "simulator/in_process/in_process_device.h"
#include "transport/client_session.h"
#include "transport/cp_drem_session.h"

namespace {

using zulisim::Operation;

// The engine with a client whose answers the input holds.
class Device : zulisim::OperationObserver {
 public:
  Device() : attachment_(engine, {{"/data/Marvoleth.log", "/dev/null"}}) {
    engine.AddObserver(this);
    for (const char* client : {"KALO", "FENU"}) {
      engine.SetResponder(client, [this](const zulisim::Bytes&) { return reply; });
    }
  }

  // Those too that are left open because a connection was refused.
  void CloseDescriptors() {
    for (const int descriptor : std::set<int>(open_)) close(descriptor);
  }

  zulisim::Engine engine{{zulisim::DefaultClients(), false}};
  zulisim::Reply reply;

 private:
  void OnOperation(const zulisim::OperationRecord& record) override {
    if (record.operation == Operation::kOpen && record.result != -1)
      open_.insert(record.descriptor);
    if (record.operation == Operation::kClose) open_.erase(record.descriptor);
  }

  std::set<int> open_;
  zulisim::InProcessDevice attachment_;
};

using Buffer = std::unique_ptr<unsigned char[]>;

// Exactly as long as it is said to be, or null.
Buffer Exact(FuzzedDataProvider& input, size_t length) {
  if (input.ConsumeIntegralInRange(0, 15) == 0) return nullptr;
  Buffer buffer(new unsigned char[length]());
  const std::string bytes = input.ConsumeRandomLengthString(length);
  std::copy(bytes.begin(), bytes.end(), buffer.get());
  return buffer;
}

void CheckRecord(uint32_t status) {
  const KaloDllState& state = gKaloDllState;
  FUZZ_CHECK(status <= 6);
  if (status == 0) return;
  FUZZ_CHECK(state.lastErrorSource >= 1 && state.lastErrorSource <= 3);
  const uint32_t codes[] = {state.apiErrorCode, state.kaloErrorCode, state.fenuErrorCode};
  FUZZ_CHECK(codes[state.lastErrorSource - 1] == (status == 1 ? 0xFFFFFFFFu : status));
}

void Submit(FuzzedDataProvider& input) {
  const KaloDllState& state = gKaloDllState;
  const auto inputLength = input.ConsumeIntegralInRange<uint32_t>(0, 40);
  const auto outputLength = input.ConsumeIntegralInRange<uint32_t>(0, 40);
  const Buffer request = Exact(input, inputLength);
  const Buffer reply = Exact(input, outputLength);
  const Buffer privateData = Exact(input, 16);
  if (privateData != nullptr && input.ConsumeIntegralInRange(0, 7) == 0) {
    std::memcpy(privateData.get(), input.ConsumeBool() ? "IOCTLHND" : "IOCTLFRE", 8);
  }
  unsigned int length = input.PickValueInArray({0u, 9u, 16u});
  unsigned int* lengthPointer = input.ConsumeBool() ? &length : nullptr;
  // Only sessions that are open may be named.
  ClientSession* const sessions[] = {
      state.kaloRefCountA != 0 && state.kaloInterfaceVersion == 3 ? state.kaloSessionA : nullptr,
      state.kaloRefCountB != 0 ? state.kaloSessionB : nullptr,
      state.fenuRefCount != 0 ? state.fenuSession : nullptr};
  const auto choice = input.ConsumeIntegralInRange<uint32_t>(0, 4);
  CheckRecord(choice < 3 ? StartIoEx3(sessions[choice], request.get(), inputLength, reply.get(),
                                      outputLength, privateData.get(), lengthPointer)
                         : StartIoEx(request.get(), inputLength, reply.get(), outputLength,
                                     privateData.get(), lengthPointer));
  FUZZ_CHECK(length <= 16);
}

void PassIoctl(FuzzedDataProvider& input) {
  ClientSession* session = gKaloDllState.fenuRefCount != 0 ? gKaloDllState.fenuSession : nullptr;
  if (session == nullptr || session->dremSessions.empty()) return;
  unsigned char argument[64] = {};
  try {
    session->dremSessions[0]->SendIoctlToZuli(
        input.ConsumeBool() ? static_cast<int>(0xC0104801u) : 0x4802, argument);
  } catch (const std::runtime_error&) {
  }
}

void Instruct(FuzzedDataProvider& input, Device& device) {
  zulisim::Fault fault;
  fault.operation = static_cast<Operation>(input.ConsumeIntegralInRange(0, 4));
  fault.first = device.engine.Count(fault.operation) + input.ConsumeIntegralInRange(1, 3);
  fault.times = input.ConsumeIntegralInRange(1, 7);
  const bool transfer = fault.operation == Operation::kRead || fault.operation == Operation::kWrite;
  const auto effect = input.ConsumeIntegralInRange(0, 2);
  if (effect == 0) fault.effect = zulisim::ErrnoFault{input.ConsumeIntegralInRange(1, 133)};
  if (effect == 1) {
    fault.effect = zulisim::DeviceLoss{input.ConsumeIntegralInRange<uint64_t>(0, 2), ENODEV,
                                       input.ConsumeBool()};
  }
  if (effect == 2 && transfer) {
    fault.effect = zulisim::ShortCount{input.ConsumeIntegralInRange<size_t>(0, 40)};
  }
  if (!zulisim::FaultError(fault)) device.engine.AddFault(fault);
}

std::optional<zulisim::Bytes> RandomMessage(FuzzedDataProvider& input) {
  if (input.ConsumeIntegralInRange(0, 7) == 0) return std::nullopt;
  return input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, 64));
}

void CallOnce(FuzzedDataProvider& input, Device& device) {
  KALO_STATE_INIT_PARAMS parameters = {input.PickValueInArray({0u, 0x30000u, 0x30002u}), 0};
  parameters.stateInitOption = input.ConsumeIntegralInRange(0, 7) == 0;
  const KaloDllState& state = gKaloDllState;
  void* handle = nullptr;
  const std::function<void()> calls[] = {
      [&] { CheckRecord(KaloStateInit(&parameters)); },
      [&] { CheckRecord(KaloInit3(&handle)); },
      [&] { CheckRecord(KaloInit()); },
      [&] { CheckRecord(FenuInit3(&handle)); },
      [&] { CheckRecord(FenuInit()); },
      [&] { KaloCleanup3(input.ConsumeBool() ? state.kaloSessionA : state.kaloSessionB); },
      [] { KaloCleanup(); },
      [&] { FenuCleanup3(state.fenuSession); },
      [] { FenuCleanup(); },
      [&] { Instruct(input, device); },
      [&] { device.reply.message = RandomMessage(input), device.reply.privateData = RandomMessage(input); },
      [&] { PassIoctl(input); },
      [&] { Submit(input); }};
  calls[input.ConsumeIntegralInRange<size_t>(0, std::size(calls) - 1)]();
}

// The state of a fresh load.
void Reset(Device& device) {
  KaloDllState& state = gKaloDllState;
  while (state.kaloRefCountA + state.kaloRefCountB != 0 &&
         (state.kaloSessionA != nullptr || state.kaloSessionB != nullptr)) {
    KaloCleanup();
    if (state.kaloSessionA == nullptr) state.kaloRefCountA = 0;
    if (state.kaloSessionB == nullptr) state.kaloRefCountB = 0;
  }
  state.fenuRefCount = 0;
  FenuCleanup();
  state.kaloRefCountA = state.kaloRefCountB = 0;
  state.kaloSessionA = state.kaloSessionB = nullptr;
  state.kaloInterfaceVersion = state.fenuInterfaceVersion = state.firmwareApiVersion = 0;
  for (LogSink*& sink : Logger::logBase.sinks) delete sink;
  Logger::logBase.sinks.clear();
  device.CloseDescriptors();
  device.engine.ClearFaults();
  device.engine.LoseDevice({0, ENODEV, false});
  FUZZ_CHECK(device.engine.OpenDescriptors() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Device* device = new Device;
  FuzzedDataProvider input(data, size);
  device->reply = {zulisim::Bytes(24), std::nullopt};
  for (int calls = 0; calls < 24 && input.remaining_bytes() != 0; ++calls) {
    CallOnce(input, *device);
  }
  Reset(*device);
  return 0;
}
