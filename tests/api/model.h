#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/library_test.h"

namespace test {

// A fault for one call: operations `first` to `first + times - 1` of a kind, counted from 0 within
// the call, fail with EIO or lose the device.
struct CallFault {
  zulisim::Operation operation;
  unsigned first;
  unsigned times;
  bool loss;
};

// What is wrong with a request, as a sum.
enum Shape : unsigned { kNullInput = 1, kNullOutput = 2, kShortInput = 4, kShortOutput = 8 };
inline unsigned InputLength(unsigned shape) { return shape & kShortInput ? 15 : 32; }
inline unsigned OutputLength(unsigned shape) { return shape & kShortOutput ? 15 : 32; }

// The library as its rules describe it: the state that it exports, its sessions and connections,
// and what it tells. Each entry point predicts its status and its transcript; it is called after
// the library's own, since the library chooses the address of a session that it opens.
class Model {
 public:
  struct Session {
    const void* address = nullptr;
    bool live = true;
    bool open = false, bound = false, lost = false;
    int32_t errorStatus = -1;
    std::string errorText;
  };
  explicit Model(bool traces) : traced(traces) {}

  uint32_t KaloStateInit(const KALO_STATE_INIT_PARAMS* params) {
    Say("KaloStateInit", {"Executing call to KaloStateInit() API..."});
    if (params != nullptr) {
      want->firmwareApiVersion = params->firmwareApiVersion;
      want->stateInitFlag = params->stateInitOption == 1;
    }
    Say("KaloStateInit", {"Call to KaloInit() API completed successfully."});
    return 0;
  }

  // `variable` is what the handle variable held.
  uint32_t KaloInit3(const void* variable) {
    ++sinks;
    handle = variable;
    Say("KaloInit3", {"Executing call to KaloInit3() API ..."});
    Session* pending = nullptr;
    try {
      if (want->kaloRefCountA == 0) {
        a = pending = Open(gKaloDllState.kaloSessionA);
        handle = a->address;
        want->sessionBShared = want->stateInitFlag;
        Say("KaloInit3", {"KALO DREM Handle A " + Pointer(handle), CountA(++want->kaloRefCountA)});
      } else if (want->firmwareApiVersion == 0x30002) {
        handle = AddressOf(a);
        Say("KaloInit3", {"KALO DREM Handle A " + Pointer(handle),
                          "KALO DREM Ref Cnt A with FW API_32 " + Hex(++want->kaloRefCountA)});
      } else if (want->firmwareApiVersion == 0x30000 && want->kaloRefCountB == 0) {
        b = pending = Open(gKaloDllState.kaloSessionB);
        handle = b->address;
        Say("KaloInit3", {"KALO DREM Handle B with FW API_30 " + Pointer(handle),
                          "KALO DREM Ref Cnt B with FW API_30 " + Hex(++want->kaloRefCountB)});
      } else if (want->firmwareApiVersion == 0x30000) {
        ++(want->sessionBShared ? want->kaloRefCountB : want->kaloRefCountA);
        handle = AddressOf(want->sessionBShared ? b : a);
        Say("KaloInit3", {"KALO DREM Ref Cnt A with FW API_30 " + Hex(want->kaloRefCountA),
                          "KALO DREM Ref Cnt B with FW API_30 " + Hex(want->kaloRefCountB)});
      } else {
        Say("KaloInit3", {"Error - FW version is not set "});
      }
    } catch (const std::runtime_error& error) {
      Say("KaloInit3", {"Call to KaloInit3() API failed.", error.what()});
      return Record(1, error.what(), 0xFFFFFFFF, kNoContext, 1);
    }
    if (want->kaloInterfaceVersion != 0 && want->kaloInterfaceVersion != 3) {
      Destroy(pending);
      const std::string text = KaloText(5, "Previous provisioning attempt failed.");
      Say("KaloInit3", {"Call to KaloInit3() API failed.", text});
      return Record(1, text, 5, kNoContext, 5);
    }
    want->kaloInterfaceVersion = 3;
    Say("KaloInit3", {"Call to KaloInit3() API completed successfully. ",
                      "Returned DREM Handle " + Pointer(handle)});
    return 0;
  }

  // `wrapper` is what the tag in the private data asks for, empty without one.
  uint32_t StartIoEx3(Session* session, unsigned shape, const std::string& wrapper) {
    Say("StartIoEx3", {"Executing call to StartIoEx3() API...",
                       "CpSession: " + Pointer(AddressOf(session)) + "\n",
                       "InputBufferLength: " + std::to_string(InputLength(shape)) + "\n",
                       "OutputBufferLength: " + std::to_string(OutputLength(shape)) + "\n"});
    if (session == nullptr) return Refuse(nullptr, 2, "Invalid CP session handle");
    if (shape & (kNullInput | kNullOutput))
      return Refuse(session, 2, "Invalid In or Out Buffer pointer");
    if (!wrapper.empty()) {
      Say("StartIoEx3", {"IoctlWrapper handle " + wrapper + " call\n"});
    } else {
      if (shape & kShortInput) return Refuse(session, 3, "Input buffer < kalo header size");
      if (shape & kShortOutput) return Refuse(session, 4, "Output buffer < kalo header size");
      try {
        Exchange(*session);
      } catch (const std::runtime_error& error) {
        session->errorStatus = -1;
        session->errorText = error.what();
        Say("StartIoEx3",
            {"General Exception : Call to StartIoEx3() API failed.", session->errorText});
        return Record(1, error.what(), 0xFFFFFFFF, session->address, 1);
      }
    }
    Say("StartIoEx3", {"Call to StartIoEx3() API completed successfully."});
    return 0;
  }

  uint32_t StartIo3(Session* session, unsigned shape) {
    Say("StartIo3", {"Executing call to StartIo3() API..."});
    const uint32_t status = StartIoEx3(session, shape, "");
    Say("StartIo3", {status == 0 ? "Call to StartIo3() API completed successfully."
                                 : "Call to StartIo3() API failed."});
    return status;
  }

  uint32_t KaloCleanup3(const void* released) {
    Say("KaloCleanup3", {"Executing call to KaloCleanup3() API...", CountA(want->kaloRefCountA)});
    if (released == AddressOf(a) && want->kaloRefCountA != 0 && --want->kaloRefCountA == 0) {
      Destroy(a);
      want->sessionBShared = false;
    }
    Say("KaloCleanup3", {CountA(want->kaloRefCountA), CountB(want->kaloRefCountB)});
    if (released == AddressOf(b) && want->kaloRefCountB != 0 && --want->kaloRefCountB == 0)
      Destroy(b);
    Say("KaloCleanup3",
        {CountB(want->kaloRefCountB), "Call to KaloCleanup3() API completed successfully."});
    return 0;
  }

  uint32_t KaloInit() {
    Say("KaloInit:802", {"Executing call to KaloInit() API..."});
    const bool present = a != nullptr;
    const uint32_t status = present ? 0 : KaloInit3(nullptr);
    if (status != 0) {
      Say("KaloInit:814", {"Call to KaloInit() API failed."});
    } else {
      Say(present ? "KaloInit:820" : "KaloInit:810",
          {"Call to KaloInit() API completed successfully."});
    }
    return status;
  }

  uint32_t KaloCleanup() {
    Say("KaloCleanup:",
        {"830: Executing call to KaloCleanup() API...", "832: " + CountA(want->kaloRefCountA)});
    if (a != nullptr && want->kaloRefCountA != 0 && --want->kaloRefCountA == 0) {
      Destroy(a);
      want->sessionBShared = false;
      a = nullptr;
    }
    Say("KaloCleanup:",
        {"848: " + CountA(want->kaloRefCountA), "850: " + CountB(want->kaloRefCountB)});
    if (b != nullptr && want->kaloRefCountB != 0 && --want->kaloRefCountB == 0) {
      Destroy(b);
      b = nullptr;
    }
    Say("KaloCleanup:", {"862: " + CountB(want->kaloRefCountB),
                         "866: Call to KaloCleanup() API completed successfully."});
    return 0;
  }

  uint32_t StartIoEx(uint32_t command, unsigned shape, const std::string& wrapper) {
    if (shape & (kNullInput | kNullOutput)) return Misfiled(2, "Invalid In or Out Buffer pointer");
    if (shape & kShortInput) return Misfiled(3, "Input buffer < kalo header size");
    if (shape & kShortOutput) return Misfiled(4, "Output buffer < kalo header size");
    Session* session = command >= 0x30000 && command <= 0x3FFFF ? fenu : a;
    if (session == nullptr || !session->live) {
      return Misfiled(6, "StartIoEx() called before Init() or after Cleanup() API");
    }
    return StartIoEx3(session, shape, wrapper);
  }

  uint32_t FenuInit3() {
    Say("FenuInit3:660", {"Executing call to FenuInit3() API..."});
    if (want->fenuInterfaceVersion == 0) {
      try {
        fenu = Open(gKaloDllState.fenuSession);
      } catch (const std::runtime_error& error) {
        Say("FenuInit3:",
            {"698: Call to FenuInit3() API failed.", "699: " + std::string(error.what())});
        return Record(1, error.what(), 0xFFFFFFFF, kNoContext, 1);
      }
      want->fenuInterfaceVersion = 3;
      Say("FenuInit3:", {"676: KALO FeNu DREM Handle " + Pointer(fenu->address),
                         "677: KALO FeNu DREM Ref Cnt " + Hex(++want->fenuRefCount)});
    } else if (want->fenuInterfaceVersion == 3) {
      Say("FenuInit3:682", {"KALO FeNu DREM Ref Cnt " + Hex(++want->fenuRefCount)});
    }
    handle = AddressOf(fenu);
    Say("FenuInit3:709", {"Call to FenuInit3() API completed successfully. "});
    return 0;
  }

  uint32_t FenuCleanup3(Session* released) {
    Say("FenuCleanup3:", {"721: Executing call to FenuCleanup3() API... ",
                          "723: FeNu KALO DREM Ref Cnt " + Hex(want->fenuRefCount)});
    if (want->fenuRefCount != 0 && --want->fenuRefCount == 0) {
      Destroy(released);
      want->fenuInterfaceVersion = 0;
    }
    Say("FenuCleanup3:", {"734: FeNu KALO DREM Ref Cnt " + Hex(want->fenuRefCount),
                          "738: Call to FenuCleanup3() API completed successfully."});
    return 0;
  }

  uint32_t FenuInit() {
    Say("FenuInit:881", {"Executing call to FenuInit() API..."});
    const bool present = fenu != nullptr;
    const uint32_t status = present ? 0 : FenuInit3();
    if (status != 0) {
      Say("FenuInit:892", {"Call to FenuInit() API failed."});
    } else {
      Say(present ? "FenuInit:899" : "FenuInit:888",
          {"Call to FenuInit() API completed successfully."});
    }
    return status;
  }

  uint32_t FenuCleanup() {
    Say("FenuCleanup:", {"909: Executing call to FenuCleanup() API...",
                         "911: FeNu KALO DREM Ref Cnt " + Hex(want->fenuRefCount)});
    if (want->fenuRefCount == 0 || --want->fenuRefCount == 0) {
      Destroy(fenu);
      fenu = nullptr;
    }
    Say("FenuCleanup:", {"927: FeNu KALO DREM Ref Cnt " + Hex(want->fenuRefCount),
                         "931: Call to FenuCleanup() API completed successfully."});
    return 0;
  }

  // The session that lives at an address now.
  Session* LiveAt(const void* address) {
    for (const auto& session : sessions) {
      if (session->live && session->address == address) return session.get();
    }
    return nullptr;
  }
  static const void* AddressOf(const Session* session) {
    return session == nullptr ? nullptr : session->address;
  }

  // Forgets what the last call did, and plans a fault for the next.
  void Begin(std::optional<CallFault> planned) {
    fault = planned;
    for (unsigned& count : occurrences) count = 0;
    told.clear();
    sinks = 0;
  }

  static inline const void* const kNoContext = reinterpret_cast<const void*>(0xDEADBEEFull);

  StateSnapshot want;  // sessions apart
  Session *a = nullptr, *b = nullptr, *fenu = nullptr;
  size_t descriptors = 0;
  std::vector<std::unique_ptr<Session>> sessions;

  // Of the last call: log lines and device operations, what the handle variable holds, and how
  // many sinks came. A line with a tag of its own is a trace message.
  Lines told;
  const void* handle = nullptr;
  size_t sinks = 0;

 private:
  // --- Texts and errors ---

  // A name that ends in a colon has its tags in the texts.
  void Say(const std::string& name, const Lines& texts) {
    const bool tagged = name.find(':') != std::string::npos;
    if (tagged && !traced) return;
    for (const std::string& text : texts) {
      told.push_back(name + (name.back() == ':' ? "" : ": ") + text);
    }
  }
  static std::string CountA(uint32_t count) { return "KALO DREM Ref Cnt A " + Hex(count); }
  static std::string CountB(uint32_t count) { return "KALO DREM Ref Cnt B " + Hex(count); }

  uint32_t Record(uint32_t source, const std::string& text, uint32_t code, const void* context,
                  uint32_t status) {
    std::strcpy(source == 1   ? want->apiErrorText
                : source == 2 ? want->kaloErrorText
                              : want->fenuErrorText,
                text.c_str());
    (source == 1   ? want->apiErrorCode
     : source == 2 ? want->kaloErrorCode
                   : want->fenuErrorCode) = code;
    want->lastErrorSource = source;
    want->lastErrorProcessId = static_cast<uint32_t>(getpid());
    if (source == 1) want->lastErrorContext = const_cast<void*>(context);
    return status;
  }
  static std::string KaloText(uint32_t status, const std::string& text) {
    return "KALO Exception 0x" + std::to_string(status) + " " + text;
  }
  uint32_t Refuse(Session* session, uint32_t status, const char* text) {
    const std::string what = KaloText(status, text);
    if (session != nullptr) {
      session->errorStatus = static_cast<int32_t>(status);
      session->errorText = what;
    }
    Say("StartIoEx3", {"Kalo Exception : Call to StartIoEx3() API failed.", what});
    return Record(1, what, status, AddressOf(session), status);
  }
  // Before a session is selected none is, and that equals a KALO session that is not there.
  uint32_t Misfiled(uint32_t status, const char* text) {
    Say("StartIoEx:", {"1025: Call to StartIoEx() API failed.", "1026: " + KaloText(status, text)});
    return Record(a != nullptr ? 3 : 2, KaloText(status, text), status, nullptr, status);
  }

  // --- Sessions and the device ---

  Session* Open(const ClientSession* const& field) {
    auto session = std::make_unique<Session>();
    Connect(*session);
    session->address = field;
    if (LiveAt(field) != nullptr) told.push_back("a live session's address, given out again");
    sessions.push_back(std::move(session));
    return sessions.back().get();
  }

  void Destroy(Session* session) {
    if (session == nullptr || !session->live) return;
    Disconnect(*session);
    session->live = false;
  }

  // Name of the errno that an operation meets, empty when it succeeds.
  std::string Operate(zulisim::Operation operation, Session& session) {
    std::string error;
    const unsigned occurrence = occurrences[static_cast<int>(operation)]++;
    if (fault && fault->operation == operation && occurrence >= fault->first &&
        occurrence < fault->first + fault->times) {
      error = fault->loss ? "ENODEV" : "EIO";
      for (const auto& each : sessions) each->lost |= fault->loss;
      session.lost |= fault->loss;
      if (operation == zulisim::Operation::kClose && fault->loss) error.clear();
    } else if (session.lost && operation != zulisim::Operation::kClose) {
      error = "ENODEV";
    } else if (operation == zulisim::Operation::kWrite && !session.bound) {
      error = "ENOTCONN";
    }
    told.push_back("<" + std::string(OperationName(operation)) +
                   (error.empty() ? ">" : " " + error + ">"));
    return error;
  }

  void Connect(Session& session) {
    session.open = session.bound = session.lost = false;
    if (!Operate(zulisim::Operation::kOpen, session).empty()) {
      throw std::runtime_error("Cannot open ZULI device.");
    }
    ++descriptors;
    session.open = true;
    if (!Operate(zulisim::Operation::kIoctl, session).empty()) {
      throw std::runtime_error("Cannot connect to ZULI device.");
    }
    session.bound = true;
  }

  void Disconnect(Session& session) {
    if (!session.open) return;
    Operate(zulisim::Operation::kClose, session);
    --descriptors;
  }

  bool Transfer(zulisim::Operation operation, Session& session) {
    for (int attempt = 1;; ++attempt) {
      const std::string error = Operate(operation, session);
      if (error != "ENODEV") return error.empty();
      Disconnect(session);
      Connect(session);
      if (attempt == 5) return false;
    }
  }

  void Exchange(Session& session) {
    if (!session.open) return;
    if (!Transfer(zulisim::Operation::kWrite, session)) {
      throw std::runtime_error("Error writing message to ZULI.");
    }
    if (!Transfer(zulisim::Operation::kRead, session)) {
      throw std::runtime_error("Error reading message from ZULI.");
    }
  }

  const bool traced;
  std::optional<CallFault> fault;
  unsigned occurrences[zulisim::kOperationCount] = {};
};

}  // namespace test
