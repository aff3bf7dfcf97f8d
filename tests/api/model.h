#pragma once

#include <functional>

#include "tests/api/model_state.h"

namespace test {

// The library as its rules describe it: the state that it exports, its sessions and connections,
// and what it tells. Each entry point predicts its status and its transcript; it is called after
// the library's own, since the library chooses the address of a session that it opens.
class Model : public StateModel {
 public:
  using StateModel::StateModel;

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
    handle = nullptr;  // the field is the handle variable
    return InitOnce("KaloInit", {"802", "810", "820", "814"}, a, [this] { return KaloInit3(); });
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
    return InitOnce("FenuInit", {"881", "888", "899", "892"}, fenu, [this] { return FenuInit3(); });
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

 private:
  // Tags: on entry, after the opening, when a session was there, and on failure.
  uint32_t InitOnce(const std::string& name, const Lines& tags, const Session* present,
                    const std::function<uint32_t()>& init) {
    Trace(name + ":" + tags[0], {"Executing call to " + name + "() API..."});
    const uint32_t status = present != nullptr ? 0 : init();
    const size_t tag = status != 0 ? 3 : present != nullptr ? 2 : 1;
    Trace(name + ":" + tags[tag], {Ended(name, status)});
    return status;
  }

  // True when it was the last reference, whose session goes.
  bool DropReference(Session* session, uint32_t& count, uint32_t& status) {
    if (count == 0 || --count != 0) return false;
    status = SessionCleanup(session);
    return true;
  }
};

}  // namespace test
