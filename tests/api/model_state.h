#pragma once

#include <unistd.h>

#include <cstring>

#include "tests/api/model_device.h"

namespace test {

// What is wrong with a request, as a sum.
enum Shape : unsigned { kNullInput = 1, kNullOutput = 2, kShortInput = 4, kShortOutput = 8 };

struct Request {
  unsigned inputLength() const { return shape & kShortInput ? 15 : 32; }
  unsigned outputLength() const { return shape & kShortOutput ? 15 : 32; }

  uint32_t command;
  unsigned shape;
  std::string wrapper;  // what the tag in the private data asks for, empty without one
};

// Of this command the client is one without a session.
constexpr uint32_t kForeignCommand = 0xBADC;

// What the library keeps between calls, and how it refuses.
class StateModel : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;

  void Begin() {
    DeviceModel::Begin();
    handle = kUnwritten;
    sinks = 0;
  }

  StateSnapshot want;  // sessions apart
  Session *a = nullptr, *b = nullptr, *fenu = nullptr;

  // Of the last call: what the handle variable holds, and how many sinks came.
  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const void* handle = nullptr;
  size_t sinks = 0;

 protected:
  static constexpr char k30[] = "with FW API_30 ";
  static constexpr uint32_t kNoCode = 0xFFFFFFFF;
  static inline const void* const kNoContext = reinterpret_cast<const void*>(0xDEADBEEFull);

  std::string CountA(const std::string& with = "") {
    return "KALO DREM Ref Cnt A " + with + Hex(want->kaloRefCountA);
  }
  std::string CountB(const std::string& with = "") {
    return "KALO DREM Ref Cnt B " + with + Hex(want->kaloRefCountB);
  }
  std::string CountFenu() { return "FeNu KALO DREM Ref Cnt " + Hex(want->fenuRefCount); }
  static std::string Ended(const std::string& name, uint32_t status) {
    return "Call to " + name + "() API " + (status == 0 ? "completed successfully." : "failed.");
  }

  static uint32_t CodeOf(const std::runtime_error& error) {
    const auto* refusal = dynamic_cast<const Refusal*>(&error);
    return refusal != nullptr ? refusal->status : kNoCode;
  }

  uint32_t Record(uint32_t source, const std::runtime_error& error, const void* context) {
    const uint32_t code = CodeOf(error);
    char* const texts[] = {want->apiErrorText, want->kaloErrorText, want->fenuErrorText};
    uint32_t* const codes[] = {&want->apiErrorCode, &want->kaloErrorCode, &want->fenuErrorCode};
    std::strcpy(texts[source - 1], error.what());
    *codes[source - 1] = code;
    want->lastErrorSource = source;
    want->lastErrorProcessId = static_cast<uint32_t>(getpid());
    if (source == 1) want->lastErrorContext = const_cast<void*>(context);
    return code != kNoCode ? code : 1;
  }

  static void RefuseIf(bool wrong, uint32_t status, const char* text) {
    if (wrong) throw Refusal(status, text);
  }
  static void CheckPointers(const Request& request) {
    RefuseIf(request.shape & (kNullInput | kNullOutput), 2, "Invalid In or Out Buffer pointer");
  }
  static void CheckLengths(const Request& request) {
    RefuseIf(request.shape & kShortInput, 3, "Input buffer < kalo header size");
    RefuseIf(request.shape & kShortOutput, 4, "Output buffer < kalo header size");
  }
};

}  // namespace test
