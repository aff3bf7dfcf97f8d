#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/operation.h"

namespace test {

// A fault for one call: operations `first` to `first + times - 1` of a kind, counted from 0 within
// the call, fail with EIO or lose the device.
struct CallFault {
  zulisim::Operation operation;
  unsigned first;
  unsigned times;
  bool loss;
};

// What a request looks like.
enum class Shape { kGood, kNullOutput, kShortInput, kShortOutput, kTag };
constexpr int kShapes = 5;

// The library as its rules describe it: the state that it exports, its sessions and their
// connections. Each entry point predicts its status. Where a call opens a session, the caller then
// tells the address (`opened`).
class Model {
 public:
  struct Session {
    const void* address = nullptr;
    bool live = true;
    enum { kNone, kUnbound, kBound } link = kNone;
    bool lost = false;
    int32_t errorStatus = -1;
    std::string errorText;
  };
  struct ErrorRecord {
    std::string text;
    uint32_t code = 0;
  };

  uint32_t KaloStateInit(uint32_t version, uint32_t option) {
    firmwareApiVersion = version;
    stateInitFlag = option == 1;
    return 0;
  }

  uint32_t KaloInit3() {
    Session* pending = nullptr;
    try {
      if (countA == 0) {
        a = pending = Open();
        ++countA;
        sessionBShared = stateInitFlag;
        handle = a;
      } else if (firmwareApiVersion == 0x30002) {
        ++countA;
        handle = a;
      } else if (firmwareApiVersion == 0x30000 && countB == 0) {
        b = pending = Open();
        ++countB;
        handle = b;
      } else if (firmwareApiVersion == 0x30000) {
        ++(sessionBShared ? countB : countA);
        handle = sessionBShared ? b : a;
      }
    } catch (const std::runtime_error& error) {
      return Record(1, error.what(), 0xFFFFFFFF, kNoContext, 1);
    }
    if (kaloGeneration != 0 && kaloGeneration != 3) {
      if (pending != nullptr) Destroy(pending);
      return Record(1, "KALO Exception 0x5 Previous provisioning attempt failed.", 5, kNoContext,
                    5);
    }
    kaloGeneration = 3;
    return 0;
  }

  uint32_t StartIoEx3(Session* session, Shape shape) {
    try {
      if (session == nullptr) return Refuse(nullptr, 2, "Invalid CP session handle");
      if (shape == Shape::kNullOutput)
        return Refuse(session, 2, "Invalid In or Out Buffer pointer");
      if (shape == Shape::kTag) return 0;
      if (shape == Shape::kShortInput) return Refuse(session, 3, "Input buffer < kalo header size");
      if (shape == Shape::kShortOutput)
        return Refuse(session, 4, "Output buffer < kalo header size");
      Exchange(session);
      return 0;
    } catch (const std::runtime_error& error) {
      session->errorStatus = -1;
      session->errorText = error.what();
      return Record(1, error.what(), 0xFFFFFFFF, session->address, 1);
    }
  }

  uint32_t KaloCleanup3(const void* released) {
    if (released == AddressOf(a) && countA != 0 && --countA == 0) {
      Destroy(a);
      sessionBShared = false;
    }
    if (released == AddressOf(b) && countB != 0 && --countB == 0) Destroy(b);
    return 0;
  }

  uint32_t KaloInit() { return a != nullptr ? 0 : KaloInit3(); }

  uint32_t KaloCleanup() {
    if (a != nullptr && countA != 0 && --countA == 0) {
      Destroy(a);
      sessionBShared = false;
      a = nullptr;
    }
    if (b != nullptr && countB != 0 && --countB == 0) {
      Destroy(b);
      b = nullptr;
    }
    return 0;
  }

  uint32_t StartIoEx(uint32_t command, Shape shape) {
    if (shape == Shape::kNullOutput) return Misfiled(2, "Invalid In or Out Buffer pointer");
    if (shape == Shape::kShortInput) return Misfiled(3, "Input buffer < kalo header size");
    if (shape == Shape::kShortOutput) return Misfiled(4, "Output buffer < kalo header size");
    Session* session = command >= 0x30000 && command <= 0x3FFFF ? fenu : a;
    if (session == nullptr || !session->live) {
      return Misfiled(6, "StartIoEx() called before Init() or after Cleanup() API");
    }
    return StartIoEx3(session, shape);
  }

  uint32_t FenuInit3() {
    if (fenuGeneration == 0) {
      try {
        fenu = Open();
      } catch (const std::runtime_error& error) {
        return Record(1, error.what(), 0xFFFFFFFF, kNoContext, 1);
      }
      ++fenuCount;
      fenuGeneration = 3;
    } else {
      ++fenuCount;
    }
    handle = fenu;
    return 0;
  }

  uint32_t FenuCleanup3(Session* released) {
    if (fenuCount != 0 && --fenuCount == 0) {
      Destroy(released);
      fenuGeneration = 0;
    }
    return 0;
  }

  uint32_t FenuInit() { return fenu != nullptr ? 0 : FenuInit3(); }

  uint32_t FenuCleanup() {
    if (fenuCount == 0 || --fenuCount == 0) {
      Destroy(fenu);
      fenu = nullptr;
    }
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
    handle.reset();
    opened = nullptr;
  }

  static inline const void* const kNoContext = reinterpret_cast<const void*>(0xDEADBEEFull);

  uint32_t kaloGeneration = 0, fenuGeneration = 0;
  uint32_t firmwareApiVersion = 0;
  bool stateInitFlag = false, sessionBShared = false;
  uint32_t countA = 0, countB = 0, fenuCount = 0;
  Session *a = nullptr, *b = nullptr, *fenu = nullptr;
  ErrorRecord errors[3];
  uint32_t lastSource = 0;
  const void* lastContext = kNoContext;
  size_t descriptors = 0;
  std::vector<std::unique_ptr<Session>> sessions;
  std::optional<Session*> handle;  // what the call wrote to the handle variable, if it did
  Session* opened = nullptr;       // the session that the call opened

 private:
  // --- Errors ---

  uint32_t Record(uint32_t source, const std::string& text, uint32_t code, const void* context,
                  uint32_t status) {
    errors[source - 1] = {text, code};
    lastSource = source;
    if (source == 1) lastContext = context;
    return status;
  }
  static std::string KaloText(uint32_t status, const std::string& text) {
    return "KALO Exception 0x" + std::to_string(status) + " " + text;
  }
  uint32_t Refuse(Session* session, uint32_t status, const char* text) {
    if (session != nullptr) {
      session->errorStatus = static_cast<int32_t>(status);
      session->errorText = KaloText(status, text);
    }
    return Record(1, KaloText(status, text), status, AddressOf(session), status);
  }
  // Before a session is selected none is, and that equals a KALO session that is not there.
  uint32_t Misfiled(uint32_t status, const char* text) {
    const bool open = a != nullptr && a->live;
    return Record(open ? 3 : 2, KaloText(status, text), status, nullptr, status);
  }

  // --- Sessions and the device ---

  Session* Open() {
    auto session = std::make_unique<Session>();
    Connect(session.get());
    sessions.push_back(std::move(session));
    return opened = sessions.back().get();
  }

  void Destroy(Session* session) {
    if (session == nullptr || !session->live) return;
    Disconnect(session);
    session->live = false;
  }

  // True when the operation meets the planned fault.
  bool Strikes(zulisim::Operation operation, Session* current) {
    const unsigned occurrence = occurrences[static_cast<int>(operation)]++;
    if (!fault || fault->operation != operation || occurrence < fault->first ||
        occurrence >= fault->first + fault->times) {
      return false;
    }
    if (fault->loss) {
      for (const auto& session : sessions) session->lost = true;
      current->lost = true;
    }
    return true;
  }

  enum class Try { kDone, kLost, kFailed };
  Try Attempt(zulisim::Operation operation, Session* session, bool possible) {
    if (Strikes(operation, session)) return fault->loss ? Try::kLost : Try::kFailed;
    if (session->lost) return Try::kLost;
    return possible ? Try::kDone : Try::kFailed;
  }

  void Connect(Session* session) {
    session->link = Session::kNone;
    if (Strikes(zulisim::Operation::kOpen, session)) {
      throw std::runtime_error("Cannot open ZULI device.");
    }
    ++descriptors;
    session->link = Session::kUnbound;
    session->lost = false;
    if (Attempt(zulisim::Operation::kIoctl, session, true) != Try::kDone) {
      throw std::runtime_error("Cannot connect to ZULI device.");
    }
    session->link = Session::kBound;
  }

  void Disconnect(Session* session) {
    if (session->link == Session::kNone) return;
    Strikes(zulisim::Operation::kClose, session);
    --descriptors;
  }

  bool Transfer(zulisim::Operation operation, Session* session) {
    for (int attempt = 1;; ++attempt) {
      const Try result = Attempt(operation, session, session->link == Session::kBound);
      if (result != Try::kLost) return result == Try::kDone;
      Disconnect(session);
      Connect(session);
      if (attempt == 5) return false;
    }
  }

  void Exchange(Session* session) {
    if (session->link == Session::kNone) return;
    if (!Transfer(zulisim::Operation::kWrite, session)) {
      throw std::runtime_error("Error writing message to ZULI.");
    }
    if (!Transfer(zulisim::Operation::kRead, session)) {
      throw std::runtime_error("Error reading message from ZULI.");
    }
  }

  std::optional<CallFault> fault;
  unsigned occurrences[zulisim::kOperationCount] = {};
};

}  // namespace test
