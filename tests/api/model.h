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

// The library as its rules describe it: the state that it exports, its sessions and connections,
// and what it tells. Each entry point predicts its status and its transcript; it is called after
// the library's own, since the library chooses the address of a session that it opens.
class Model : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;

  void Begin() {
    DeviceModel::Begin();
    handle = kUnwritten;
    sinks = 0;
  }

  uint32_t KaloStateInit(const KALO_STATE_INIT_PARAMS* params) {
    Say("KaloStateInit", {"Executing call to KaloStateInit() API..."});
    if (params != nullptr) {
      want->firmwareApiVersion = params->firmwareApiVersion;
      want->stateInitFlag = params->stateInitOption == 1;
    }
    Say("KaloStateInit", {"Call to KaloInit() API completed successfully."});
    return 0;
  }

  uint32_t KaloInit3() {
    ++sinks;
    Say("KaloInit3", {"Executing call to KaloInit3() API ..."});
    Session* pending = nullptr;
    try {
      if (want->kaloRefCountA == 0) {
        a = pending = Open("KALO", gKaloDllState.kaloSessionA);
        handle = a->address;
        want->sessionBShared = want->stateInitFlag;
        ++want->kaloRefCountA;
        Say("KaloInit3", {"KALO DREM Handle A " + Pointer(handle), CountA()});
      } else if (want->firmwareApiVersion == 0x30002) {
        handle = AddressOf(a);
        ++want->kaloRefCountA;
        Say("KaloInit3", {"KALO DREM Handle A " + Pointer(handle), CountA("with FW API_32 ")});
      } else if (want->firmwareApiVersion == 0x30000 && want->kaloRefCountB == 0) {
        b = pending = Open("KALO", gKaloDllState.kaloSessionB);
        handle = b->address;
        ++want->kaloRefCountB;
        Say("KaloInit3", {"KALO DREM Handle B with FW API_30 " + Pointer(handle), CountB(k30)});
      } else if (want->firmwareApiVersion == 0x30000) {
        ++(want->sessionBShared ? want->kaloRefCountB : want->kaloRefCountA);
        handle = AddressOf(want->sessionBShared ? b : a);
        Say("KaloInit3", {CountA(k30), CountB(k30)});
      } else {
        Say("KaloInit3", {"Error - FW version is not set "});
      }
      RefuseIf(want->kaloInterfaceVersion != 0 && want->kaloInterfaceVersion != 3, 5,
               "Previous provisioning attempt failed.");
    } catch (const std::runtime_error& error) {
      Destroy(pending);
      Say("KaloInit3", {"Call to KaloInit3() API failed.", error.what()});
      return Record(1, error, kNoContext);
    }
    want->kaloInterfaceVersion = 3;
    Say("KaloInit3", {"Call to KaloInit3() API completed successfully. ",
                      "Returned DREM Handle " + Pointer(handle)});
    return 0;
  }

  uint32_t StartIoEx3(Session* session, const Request& request) {
    Say("StartIoEx3", {"Executing call to StartIoEx3() API...",
                       "CpSession: " + Pointer(AddressOf(session)) + "\n",
                       "InputBufferLength: " + std::to_string(request.inputLength()) + "\n",
                       "OutputBufferLength: " + std::to_string(request.outputLength()) + "\n"});
    try {
      RefuseIf(session == nullptr, 2, "Invalid CP session handle");
      CheckPointers(request);
      if (request.wrapper.empty()) {
        Spring(Point::kIoMessage);
        CheckLengths(request);
        Exchange(*session, request.command);
      } else {
        Say("StartIoEx3", {"IoctlWrapper handle " + request.wrapper + " call\n"});
      }
    } catch (const std::runtime_error& error) {
      const uint32_t status = Record(1, error, AddressOf(session));
      if (session != nullptr) {
        session->errorStatus = static_cast<int32_t>(want->apiErrorCode);
        session->errorText = error.what();
      }
      const std::string kind = CodeOf(error) != kNoCode ? "Kalo" : "General";
      Say("StartIoEx3", {kind + " Exception : Call to StartIoEx3() API failed.", error.what()});
      return status;
    }
    Say("StartIoEx3", {"Call to StartIoEx3() API completed successfully."});
    return 0;
  }

  uint32_t StartIo3(Session* session, const Request& request) {
    Say("StartIo3", {"Executing call to StartIo3() API..."});
    const uint32_t status = StartIoEx3(session, request);
    Say("StartIo3", {status == 0 ? "Call to StartIo3() API completed successfully."
                                 : "Call to StartIo3() API failed."});
    return status;
  }

  uint32_t KaloCleanup3(const void* released) {
    uint32_t status = 0;
    Say("KaloCleanup3", {"Executing call to KaloCleanup3() API...", CountA()});
    if (released == AddressOf(a) && DropReference(a, want->kaloRefCountA, status)) {
      want->sessionBShared = false;
    }
    Say("KaloCleanup3", {CountA(), CountB()});
    if (released == AddressOf(b)) DropReference(b, want->kaloRefCountB, status);
    Say("KaloCleanup3", {CountB(), Ended("KaloCleanup3", status)});
    return status;
  }

  uint32_t KaloInit() {
    Trace("KaloInit:802", {"Executing call to KaloInit() API..."});
    const bool present = a != nullptr;
    handle = nullptr;  // the field is the handle variable
    const uint32_t status = present ? 0 : KaloInit3();
    Trace(status != 0 ? "KaloInit:814"
          : present   ? "KaloInit:820"
                      : "KaloInit:810",
          {Ended("KaloInit", status)});
    return status;
  }

  uint32_t KaloCleanup() {
    uint32_t status = 0;
    Trace("KaloCleanup:", {"830: Executing call to KaloCleanup() API...", "832: " + CountA()});
    if (a != nullptr && DropReference(a, want->kaloRefCountA, status)) {
      want->sessionBShared = false;
      a = nullptr;
    }
    Trace("KaloCleanup:", {"848: " + CountA(), "850: " + CountB()});
    if (b != nullptr && DropReference(b, want->kaloRefCountB, status)) b = nullptr;
    Trace("KaloCleanup:",
          {"862: " + CountB(), (status == 0 ? "866: " : "870: ") + Ended("KaloCleanup", status)});
    return status;
  }

  uint32_t StartIoEx(const Request& request) {
    Session* session = nullptr;
    try {
      CheckPointers(request);
      CheckLengths(request);
      if (request.command == kForeignCommand) throw std::runtime_error("Client GUID not supported");
      session = request.command >> 16 == 3 ? fenu : a;
      RefuseIf(session == nullptr || !session->live, 6,
               "StartIoEx() called before Init() or after Cleanup() API");
    } catch (const std::runtime_error& error) {
      const bool refused = CodeOf(error) != kNoCode;
      Trace(refused ? "StartIoEx:1025" : "StartIoEx:1041",
            {Ended(refused ? "StartIoEx" : "FenuInit3", 1)});
      Trace(refused ? "StartIoEx:1026" : "StartIoEx:1042", {error.what()});
      // Before a session is selected none is, and that equals a KALO session that is not there.
      return Record(a != nullptr ? 3 : 2, error, nullptr);
    }
    return StartIoEx3(session, request);
  }

  uint32_t FenuInit3() {
    Trace("FenuInit3:660", {"Executing call to FenuInit3() API..."});
    if (want->fenuInterfaceVersion == 0) {
      try {
        fenu = Open("FENU", gKaloDllState.fenuSession);
      } catch (const std::runtime_error& error) {
        const bool refused = CodeOf(error) != kNoCode;
        Trace(refused ? "FenuInit3:688" : "FenuInit3:698", {Ended("FenuInit3", 1)});
        Trace(refused ? "FenuInit3:689" : "FenuInit3:699", {error.what()});
        return Record(1, error, kNoContext);
      }
      want->fenuInterfaceVersion = 3;
      Trace("FenuInit3:", {"676: KALO FeNu DREM Handle " + Pointer(fenu->address),
                           "677: KALO FeNu DREM Ref Cnt " + Hex(++want->fenuRefCount)});
    } else if (want->fenuInterfaceVersion == 3) {
      Trace("FenuInit3:682", {"KALO FeNu DREM Ref Cnt " + Hex(++want->fenuRefCount)});
    }
    handle = AddressOf(fenu);
    Trace("FenuInit3:709", {"Call to FenuInit3() API completed successfully. "});
    return 0;
  }

  uint32_t FenuCleanup3(Session* released) {
    uint32_t status = 0;
    Trace("FenuCleanup3:",
          {"721: Executing call to FenuCleanup3() API... ", "723: " + CountFenu()});
    if (DropReference(released, want->fenuRefCount, status)) want->fenuInterfaceVersion = 0;
    Trace("FenuCleanup3:", {"734: " + CountFenu(),
                            (status == 0 ? "738: " : "742: ") + Ended("FenuCleanup3", status)});
    return status;
  }

  uint32_t FenuInit() {
    Trace("FenuInit:881", {"Executing call to FenuInit() API..."});
    const bool present = fenu != nullptr;
    const uint32_t status = present ? 0 : FenuInit3();
    Trace(status != 0 ? "FenuInit:892"
          : present   ? "FenuInit:899"
                      : "FenuInit:888",
          {Ended("FenuInit", status)});
    return status;
  }

  uint32_t FenuCleanup() {
    uint32_t status = 0;
    Trace("FenuCleanup:", {"909: Executing call to FenuCleanup() API...", "911: " + CountFenu()});
    if (want->fenuRefCount == 0 || --want->fenuRefCount == 0) {
      status = SessionCleanup(fenu);
      fenu = nullptr;
    }
    Trace("FenuCleanup:", {"927: " + CountFenu(),
                           (status == 0 ? "931: " : "935: ") + Ended("FenuCleanup", status)});
    return status;
  }

  StateSnapshot want;  // sessions apart
  Session *a = nullptr, *b = nullptr, *fenu = nullptr;

  // Of the last call: what the handle variable holds, and how many sinks came.
  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const void* handle = nullptr;
  size_t sinks = 0;

 private:
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

  // True when it was the last reference, whose session goes.
  bool DropReference(Session* session, uint32_t& count, uint32_t& status) {
    if (count == 0 || --count != 0) return false;
    status = SessionCleanup(session);
    return true;
  }
};

}  // namespace test
