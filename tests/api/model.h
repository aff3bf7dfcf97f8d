#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/api/traps.h"
#include "tests/support/library_test.h"

namespace test {

// A fault for one call: operations `first` to `first + times - 1` of a kind, counted from 0 within
// the call, fail with `error`; ENODEV means that the device is lost, kShort that the message is
// cut.
struct CallFault {
  zulisim::Operation operation;
  unsigned first, times;
  int error;
};
constexpr int kShort = -1;
constexpr unsigned kShortCount = 8;  // bytes: the status of a reply is beyond

// What is wrong with a request, as a sum.
enum Shape : unsigned {
  kNullInput = 1,
  kNullOutput = 2,
  kShortInput = 4,
  kShortOutput = 8,
  kNullPrivateData = 16,
  kNullPrivateLength = 32
};

struct Request {
  unsigned inputLength() const { return shape & kShortInput ? 15 : 32; }
  unsigned outputLength() const { return shape & kShortOutput ? 15 : 32; }

  uint32_t command;
  unsigned shape;
  bool wrapper;  // the private data asks for one
};

// Of this command the client is one without a session.
constexpr uint32_t kForeignCommand = 0xBADC;

// What the library's own exception says.
struct Refusal : std::runtime_error {
  Refusal(uint32_t given, const std::string& text)
      : std::runtime_error("KALO Exception 0x" + Hex(given) + " " + text), status(given) {}
  uint32_t status;
};

// The library as its rules describe it: the state that it exports, its sessions and connections,
// what they do on the device, and how many lines each function tells. Each entry point predicts its
// status; it is called after the library's own, since the library chooses the address of a session.
// What the lines say is in golden/.
class Model {
 public:
  struct Session {
    const void* address = nullptr;
    bool live = true;
    std::string client;
    bool open = false, bound = false, lost = false;
    unsigned pending = 0;  // messages in the device; exact while there is one session
    int32_t errorStatus = -1;
    std::string errorText;
  };
  explicit Model(bool traces) : traced(traces) {}

  static const void* AddressOf(const Session* session) {
    return session == nullptr ? nullptr : session->address;
  }
  // The session that lives at an address now.
  Session* LiveAt(const void* address) {
    for (const auto& session : sessions) {
      if (session->live && session->address == address) return session.get();
    }
    return nullptr;
  }

  void Begin() {
    for (unsigned& count : occurrences_) count = 0;
    told.clear();
    handle = kUnwritten;
    sinks = 0;
    privateLength = 0;
  }

  const bool traced;
  bool negative = false;  // how the device answers

  // Of the next call.
  std::vector<CallFault> faults;
  Trap trap = {};

  // Of the last call: the functions that logged, a line each, amid the operations of the device;
  // what the handle variable holds; how many sinks came, and how many bytes of private data.
  Lines told;
  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const void* handle = nullptr;
  size_t sinks = 0;
  unsigned privateLength = 0;

  StateSnapshot want;  // sessions apart
  size_t descriptors = 0;
  std::vector<std::unique_ptr<Session>> sessions;
  Session *a = nullptr, *b = nullptr, *fenu = nullptr;

  uint32_t KaloStateInit(const KALO_STATE_INIT_PARAMS* params) {
    Say("KaloStateInit", 2);
    if (params != nullptr) {
      want->firmwareApiVersion = params->firmwareApiVersion;
      want->stateInitFlag = params->stateInitOption == 1;
    }
    return 0;
  }

  uint32_t KaloInit3() {
    ++sinks;
    Say("KaloInit3");
    Session* pending = nullptr;
    bool set = true;
    try {
      if (want->kaloRefCountA == 0) {
        a = pending = Open("KALO", gKaloDllState.kaloSessionA);
        handle = a->address;
        want->sessionBShared = want->stateInitFlag;
        ++want->kaloRefCountA;
      } else if (want->firmwareApiVersion == 0x30002) {
        handle = AddressOf(a);
        ++want->kaloRefCountA;
      } else if (want->firmwareApiVersion == 0x30000 && want->kaloRefCountB == 0) {
        b = pending = Open("KALO", gKaloDllState.kaloSessionB);
        handle = b->address;
        ++want->kaloRefCountB;
      } else if (want->firmwareApiVersion == 0x30000) {
        ++(want->sessionBShared ? want->kaloRefCountB : want->kaloRefCountA);
        handle = AddressOf(want->sessionBShared ? b : a);
      } else {
        set = false;
      }
      Say("KaloInit3", set ? 2 : 1);
      RefuseIf(want->kaloInterfaceVersion != 0 && want->kaloInterfaceVersion != 3, 5,
               "Previous provisioning attempt failed.");
    } catch (const std::runtime_error& error) {
      Destroy(pending);
      Say("KaloInit3", 2);
      return Record(1, error, kNoContext);
    }
    want->kaloInterfaceVersion = 3;
    Say("KaloInit3", 2);
    return 0;
  }

  uint32_t StartIoEx3(Session* session, const Request& request) {
    Say("StartIoEx3", 4);
    try {
      RefuseIf(session == nullptr, 2, "Invalid CP session handle");
      CheckPointers(request);
      if (request.wrapper) {
        Say("StartIoEx3");
      } else {
        Spring(Point::kIoMessage);
        CheckLengths(request);
        Exchange(*session, request);
      }
    } catch (const std::runtime_error& error) {
      const uint32_t status = Record(1, error, AddressOf(session));
      if (session != nullptr) {
        session->errorStatus = static_cast<int32_t>(want->apiErrorCode);
        session->errorText = error.what();
      }
      Say("StartIoEx3", 2);
      return status;
    }
    Say("StartIoEx3");
    return 0;
  }

  uint32_t StartIo3(Session* session, const Request& request) {
    Say("StartIo3");
    const uint32_t status = StartIoEx3(session, request);
    Say("StartIo3");
    return status;
  }

  uint32_t KaloCleanup3(const void* released) {
    uint32_t status = 0;
    Say("KaloCleanup3", 2);
    if (released == AddressOf(a) && DropReference(a, want->kaloRefCountA, status)) {
      want->sessionBShared = false;
    }
    Say("KaloCleanup3", 2);
    if (released == AddressOf(b)) DropReference(b, want->kaloRefCountB, status);
    Say("KaloCleanup3", 2);
    return status;
  }

  uint32_t KaloInit() {
    Trace("KaloInit");
    handle = nullptr;  // the field is the handle variable
    const uint32_t status = a != nullptr ? 0 : KaloInit3();
    Trace("KaloInit");
    return status;
  }

  uint32_t KaloCleanup() {
    uint32_t status = 0;
    Trace("KaloCleanup", 2);
    if (a != nullptr && DropReference(a, want->kaloRefCountA, status)) {
      want->sessionBShared = false;
      a = nullptr;
    }
    Trace("KaloCleanup", 2);
    if (b != nullptr && DropReference(b, want->kaloRefCountB, status)) b = nullptr;
    Trace("KaloCleanup", 2);
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
      Trace("StartIoEx", 2);
      // Before a session is selected none is, and that equals a KALO session that is not there.
      return Record(a != nullptr ? 3 : 2, error, nullptr);
    }
    return StartIoEx3(session, request);
  }

  uint32_t FenuInit3() {
    Trace("FenuInit3");
    try {
      if (want->fenuInterfaceVersion == 0) {
        fenu = Open("FENU", gKaloDllState.fenuSession);
        want->fenuInterfaceVersion = 3;
        Trace("FenuInit3");
      }
    } catch (const std::runtime_error& error) {
      Trace("FenuInit3", 2);
      return Record(1, error, kNoContext);
    }
    if (want->fenuInterfaceVersion == 3) {
      ++want->fenuRefCount;
      Trace("FenuInit3");
    }
    handle = AddressOf(fenu);
    Trace("FenuInit3");
    return 0;
  }

  uint32_t FenuCleanup3(Session* released) {
    uint32_t status = 0;
    Trace("FenuCleanup3", 2);
    if (DropReference(released, want->fenuRefCount, status)) want->fenuInterfaceVersion = 0;
    Trace("FenuCleanup3", 2);
    return status;
  }

  uint32_t FenuInit() {
    Trace("FenuInit");
    const uint32_t status = fenu != nullptr ? 0 : FenuInit3();
    Trace("FenuInit");
    return status;
  }

  uint32_t FenuCleanup() {
    uint32_t status = 0;
    Trace("FenuCleanup", 2);
    if (want->fenuRefCount == 0 || --want->fenuRefCount == 0) {
      status = SessionCleanup(fenu);
      fenu = nullptr;
    }
    Trace("FenuCleanup", 2);
    return status;
  }

 private:
  using Operation = zulisim::Operation;
  static constexpr uint32_t kNoCode = 0xFFFFFFFF;
  static inline const void* const kNoContext = reinterpret_cast<const void*>(0xDEADBEEFull);

  void Say(const char* function, size_t lines = 1) { told.insert(told.end(), lines, function); }
  void Trace(const char* function, size_t lines = 1) {
    if (traced) Say(function, lines);
  }

  uint32_t Record(uint32_t source, const std::runtime_error& error, const void* context) {
    const auto* refusal = dynamic_cast<const Refusal*>(&error);
    char* const texts[] = {want->apiErrorText, want->kaloErrorText, want->fenuErrorText};
    uint32_t* const codes[] = {&want->apiErrorCode, &want->kaloErrorCode, &want->fenuErrorCode};
    std::strcpy(texts[source - 1], error.what());
    *codes[source - 1] = refusal != nullptr ? refusal->status : kNoCode;
    want->lastErrorSource = source;
    want->lastErrorProcessId = static_cast<uint32_t>(getpid());
    if (source == 1) want->lastErrorContext = const_cast<void*>(context);
    return refusal != nullptr ? refusal->status : 1;
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

  void Spring(Point point) {
    if (!trap.Springs(point)) return;
    if (trap.kind == Trap::kRefuse) throw Refusal(0x4D, "refused");
    if (trap.kind == Trap::kBreak) throw std::runtime_error("IoControl() not implemented");
    throw 42;
  }

  Session* Open(const std::string& client, const ClientSession* const& field) {
    Spring(Point::kConnectClient);
    auto session = std::make_unique<Session>();
    session->client = client;
    Connect(*session);
    Trace("CpDremSession");
    session->address = field;
    if (LiveAt(field) != nullptr) told.push_back("a live session's address, given out again");
    sessions.push_back(std::move(session));
    return sessions.back().get();
  }

  void Destroy(Session* session) {
    if (session == nullptr) return;
    session->live = false;
    Disconnect(*session);
    Trace("~CpDremSession");
  }

  uint32_t SessionCleanup(Session* session) {
    if (session == nullptr || !session->live) return 0;
    try {
      Spring(Point::kDisconnectAllClients);
    } catch (const std::runtime_error& error) {
      Destroy(session);
      Say("SessionCleanup");
      return 1;
    }
    Destroy(session);
    return 0;
  }

  void Exchange(Session& session, const Request& request) {
    Trace("IoMessage");
    if (!session.open) return Trace("IoMessage", 2);
    Transfer(Operation::kWrite, session, "Error writing message to ZULI.");
    Trace("IoMessage");
    session.pending += negative ? 2 : 1;
    const bool whole = Transfer(Operation::kRead, session, "Error reading message from ZULI.");
    --session.pending;
    if (negative && whole) {
      Trace("IoMessage");
      if ((request.shape & (kNullPrivateData | kNullPrivateLength)) == 0) {
        const char* const text = "Error reading TEV private data";
        privateLength = Transfer(Operation::kRead, session, text) ? 16 : kShortCount;
        --session.pending;
      }
      Trace("IoMessage");
    }
    Trace("IoMessage");
  }

  // False when the message was cut.
  bool Transfer(Operation operation, Session& session, const char* text) {
    const char* const function = operation == Operation::kRead ? "ReadFromZuli" : "WriteToZuli";
    for (int attempt = 1;; ++attempt) {
      const int error = Operate(operation, session);
      Trace(function);
      if (error <= 0) return error == 0;
      if (error == ENODEV) {
        Disconnect(session);
        Connect(session);
        if (attempt < 5) continue;
      }
      Trace("IoMessage", 5);
      throw std::runtime_error(text);
    }
  }

  void Connect(Session& session) {
    session.open = session.bound = session.lost = false;
    const int refused = Operate(Operation::kOpen, session);
    Trace("Connect");
    if (refused != 0) throw std::runtime_error("Cannot open ZULI device.");
    ++descriptors;
    session.open = true;
    if (Operate(Operation::kIoctl, session) == 0) return;
    Trace("Connect");
    session.pending = 0;
    throw std::runtime_error("Cannot connect to ZULI device.");
  }

  // What waits in a lost device is handed to the next connection.
  void Disconnect(Session& session) {
    const int error = session.open ? Operate(Operation::kClose, session) : EBADF;
    if (session.open) --descriptors;
    if (!session.lost) session.pending = 0;
    if (error != 0) Trace("Disconnect");
  }

  // The errno that an operation meets, 0 when it succeeds, kShort when it does so in part.
  int Operate(Operation operation, Session& session) {
    int error = 0;
    const unsigned occurrence = occurrences_[static_cast<int>(operation)]++;
    for (const CallFault& fault : faults) {
      if (fault.operation != operation || occurrence - fault.first >= fault.times) continue;
      error = fault.error;
      break;
    }
    if (error == ENODEV) {
      for (const auto& each : sessions) each->lost = true;
      session.lost = true;
    } else if (error == 0 && session.lost && operation != Operation::kClose) {
      error = ENODEV;
    } else if (error == 0 && operation == Operation::kWrite && !session.bound) {
      error = ENOTCONN;
    }
    if (operation == Operation::kIoctl && error == 0) session.bound = true;
    told.push_back("<" + std::string(OperationName(operation)) +
                   (session.bound ? " " + session.client : "") +
                   (error <= 0 ? "" : " " + zulisim::ErrnoName(error)) + ">");
    return error;
  }

  unsigned occurrences_[zulisim::kOperationCount] = {};
};

}  // namespace test
