#pragma once

#include <unistd.h>

#include <map>
#include <regex>
#include <tuple>

#include "tests/api/calls.h"
#include "transport/cp_drem_session.h"

namespace test {

// One call of a random sequence, with the device faults during the call.
struct Step {
  const Call* call;
  unsigned handle, shape, tag;
  uint32_t command;
  KALO_STATE_INIT_PARAMS params;
  struct Fault {
    zulisim::Operation operation;
    unsigned first, times;
    int error;
  };
  std::vector<Fault> faults;
};
using Sequence = std::vector<Step>;

template <typename Random>
Sequence RandomSequence(Random random) {
  const auto below = [&random](size_t n) { return static_cast<unsigned>(random() % n); };
  static constexpr uint32_t kCommands[] = {0x10, 0x30000, 0x3FFFF, 0x40001, 0x2FFFF};
  static constexpr uint32_t kVersions[] = {0x30000, 0x30002, 0x30000, 0x30001};
  Sequence sequence(4 + below(40));
  for (Step& step : sequence) {
    step.call = &kCalls[below(std::size(kCalls))];
    step.handle = below(64);
    step.shape = below(3) != 0 ? 0 : below(64);
    step.tag = below(2) != 0 ? 0 : below(std::size(kTags));
    step.command = kCommands[below(std::size(kCommands))];
    step.params = {kVersions[below(4)], below(3)};
    for (unsigned i = below(4); i < 2; ++i) {
      const auto operation = static_cast<zulisim::Operation>(below(zulisim::kOperationCount));
      const bool loses = operation != zulisim::Operation::kClose && below(2) != 0;
      step.faults.push_back(
          {operation, below(5), 1 + below(6), loses ? ENODEV : EIO + static_cast<int>(below(8))});
    }
  }
  return sequence;
}

// Runs calls and checks what holds after any sequence: the possible statuses, the order of the
// device operations, the fields that a call may change, the error record, and the open sessions and
// descriptors. The files in golden/ cover the log, the counts, the texts of errors, and the effects
// of other code.
class SequencesTest : public CallsTest {
 protected:
  void Start() {
    TakeRaw();
    fresh_.Restore();
    sink->onLine();
  }

  // Makes the call. Returns what is wrong with its outcome, or "".
  std::string Run(const Step& step) {
    engine.ClearFaults();
    for (const auto& [operation, first, times, error] : step.faults) {
      zulisim::FaultEffect effect = zulisim::ErrnoFault{error};
      if (error == ENODEV) effect = zulisim::DeviceLoss{};
      engine.AddFault({operation, effect, {1 + first, times}});
    }
    Arguments arguments(step.shape, step.tag, step.command);
    arguments.values = step.params;
    // The possible handles: null and the live sessions.
    std::vector<ClientSession*> handles = {nullptr};
    for (ClientSession* session : live_) {
      if (session != nullptr) handles.push_back(session);
    }
    arguments.used = handles[step.handle % handles.size()];
    name_ = step.call->name;
    wrong_.clear();
    operations.clear();
    StateSnapshot before;
    const uint32_t status = Make(*step.call, arguments);
    TrimSinks();
    TakeRaw();
    UpdateSessions(arguments, before, status);
    if (IsChecked()) CheckOutcome(arguments, before, status);
    return wrong_;
  }

  // Closes everything. Returns the number of descriptors that stayed open: by contract, failed
  // connections leave them open.
  size_t Finish() {
    engine.ClearFaults();
    state.kaloRefCountA = state.kaloRefCountB = 1;
    state.fenuRefCount = 0;
    KaloCleanup();
    FenuCleanup();
    for (size_t i = 3; i < live_.size(); ++i) SessionCleanup(live_[i]);
    live_.assign(3, nullptr);
    leaked_ = 0;
    const std::set<int> left = open_;
    for (const int descriptor : left) close(descriptor);
    engine.LoseDevice();  // this also drops replies that wait for the next connection
    return left.size();
  }

  virtual uint32_t Make(const Call& call, Arguments& arguments) { return call.make(arguments); }
  // Returns false if the rules do not apply to the last call.
  virtual bool IsChecked() const { return true; }

  std::string name_;

 private:
  bool Is(const char* name) const { return name_ == name; }
  bool IsAny(const char* names) const {
    return (" " + std::string(names) + " ").find(" " + name_ + " ") != std::string::npos;
  }
  bool Opens() const { return IsAny("KaloInit KaloInit3 FenuInit FenuInit3"); }
  bool Sends() const { return IsAny("StartIoEx3 StartIo3 StartIoEx StartIo ProvisioningStartIo"); }

  bool OperationsAre(const std::string& form) const {
    static std::map<std::string, std::regex> compiled;
    return std::regex_match(operations, compiled.try_emplace(form, form).first->second);
  }

  template <typename Value>
  void Expect(const char* what, const Value& found, const Value& expected) {
    if (found == expected) return;
    std::ostringstream text;
    text << what << " is " << found << ", not " << expected << "; ";
    wrong_ += text.str();
  }

  // Updates the live sessions from the change of the counts.
  void UpdateSessions(const Arguments& a, StateSnapshot& before, uint32_t status) {
    const std::tuple<uint32_t, ClientSession*, uint32_t> fields[] = {
        {before->kaloRefCountA, state.kaloSessionA, state.kaloRefCountA},
        {before->kaloRefCountB, state.kaloSessionB, state.kaloRefCountB},
        {before->fenuRefCount, state.fenuSession, state.fenuRefCount}};
    for (size_t i = 0; i < 3; ++i) {
      const auto& [counted, is, counts] = fields[i];
      if (counted == 0 && counts == 1 && status == 0 && operations == "oi") {
        live_.push_back(live_[i]);
        live_[i] = is;
      }
      const bool closes =
          (counted == 1 && counts == 0) || (i == 2 && Is("FenuCleanup") && counts == 0);
      if (!closes) continue;
      const ClientSession* closed = Is("FenuCleanup3") ? a.used : live_[i];
      for (ClientSession*& session : live_) {
        if (session == closed) session = nullptr;
      }
    }
    if (Opens() && !operations.empty() && operations.back() == 'I') ++leaked_;
  }

  void CheckOutcome(const Arguments& a, StateSnapshot& before, uint32_t status) {
    Expect("status", status,
           Opens()   ? StatusOfOpening(before)
           : Sends() ? StatusOfSending(a, before)
                     : 0);
    const std::string form = Opens()                             ? "|O|oI|oi"
                             : Sends()                           ? ".*"
                             : IsAny("KaloCleanup KaloCleanup3") ? "c{0,2}"
                             : IsAny("FenuCleanup FenuCleanup3") ? "c?"
                                                                 : "";
    if (!OperationsAre(form)) wrong_ += "operations " + operations + "; ";
    CheckState(a, before, status);
    CheckRecord(a, before, status);
    size_t open = leaked_;
    for (const ClientSession* session : live_) {
      open += session != nullptr && session->dremSessions[0]->deviceFd != -1;
    }
    Expect("open descriptors", static_cast<size_t>(engine.OpenDescriptors()), open);
  }

  // Checks whether the call connects, and returns the status that its operations imply.
  uint32_t StatusOfOpening(StateSnapshot& before) {
    const bool kalo = IsAny("KaloInit KaloInit3");
    const bool first =
        kalo ? before->kaloRefCountA == 0 || (before->kaloRefCountB == 0 &&
                                              before->firmwareApiVersion == KALO_FIRMWARE_API_30)
             : before->fenuInterfaceVersion == 0;
    const bool held = (Is("KaloInit") && before->kaloSessionA != nullptr) ||
                      (Is("FenuInit") && before->fenuSession != nullptr);
    Expect("connection", !operations.empty(), first && !held);
    return operations.empty() || operations == "oi" ? 0 : 1;
  }

  // Returns the session on which the call sends.
  const void* SessionOf(const Arguments& a, StateSnapshot& before) const {
    if (Is("ProvisioningStartIo")) return nullptr;
    if (IsAny("StartIoEx3 StartIo3")) return a.used;
    return a.command >> 16 == 3 ? before->fenuSession : before->kaloSessionA;
  }

  uint32_t StatusOfSending(const Arguments& a, StateSnapshot& before) {
    const bool routed = IsAny("StartIoEx StartIo");
    const void* session = SessionOf(a, before);
    const bool live = session != nullptr && session == live_[a.command >> 16 == 3 ? 2 : 0];
    const bool noPointer = a.in == nullptr || a.out == nullptr;
    const uint32_t tooShort = a.inLength < 16 ? 3 : a.outLength < 16 ? 4 : 0;
    const bool wrapper = IsAny("StartIoEx3 StartIoEx") && a.AsksForWrapper();
    uint32_t expected = 0;
    if (routed) {
      expected = noPointer ? 2 : tooShort != 0 ? tooShort : !live ? 6 : 0;
    } else {
      expected = session == nullptr || noPointer ? 2 : wrapper ? 0 : tooShort;
    }
    if (expected != 0 || wrapper) {
      Expect("operations", operations, std::string());
      return expected;
    }
    const auto done = [](const std::string& call, const std::string& lost) {
      return "(" + lost + "coi){0,4}" + call;
    };
    const auto failed = [](const std::string& lost, const std::string& error) {
      return "((" + lost + "coi){0,4}(" + error + "|" + lost + "c(O|oI))|(" + lost + "coi){5})";
    };
    const std::string write = done("w", "W"), read = done("r", "R");
    if (OperationsAre("|" + write + read + "(" + read + ")?")) return 0;
    if (OperationsAre(failed("W", "X") + "|" + write + failed("R", "Z") + "|" + write + read +
                      failed("R", "Z"))) {
      return 1;
    }
    wrong_ += "operations " + operations + "; ";
    return 0;
  }

  void CheckState(const Arguments& a, StateSnapshot& before, uint32_t status) {
    // The user of a shared session B follows the first session A, and ends with the last.
    const bool opensA = before->kaloRefCountA == 0 && state.kaloRefCountA == 1;
    const bool closesA = before->kaloRefCountA == 1 && state.kaloRefCountA == 0;
    const bool shared = opensA ? state.stateInitFlag : !closesA && before->sessionBShared;
    Expect("sharing", state.sessionBShared, shared);
    if (Is("KaloInit3") && status == 0) {
      const void* given = state.kaloRefCountA != before->kaloRefCountA   ? state.kaloSessionA
                          : state.kaloRefCountB != before->kaloRefCountB ? state.kaloSessionB
                                                                         : a.kUnwritten;
      Expect("handle", const_cast<const void*>(a.handle), given);
      const bool joinsB = before->firmwareApiVersion == KALO_FIRMWARE_API_30 &&
                          before->kaloRefCountA != 0 &&
                          (before->kaloRefCountB == 0 || before->sessionBShared);
      Expect("joining B", state.kaloRefCountB != before->kaloRefCountB, joinsB);
    }
    // Checks that a field changed only if the call may change it.
    static const std::string kRecord =
        " apiErrorText apiErrorCode kaloErrorText kaloErrorCode fenuErrorText fenuErrorCode "
        "lastErrorSource lastErrorContext lastErrorProcessId ";
    const std::string own = Is("KaloStateInit") ? " firmwareApiVersion stateInitFlag "
                            : Sends()           ? ""
                            : name_.rfind("Kalo", 0) == 0
                                ? " kaloInterfaceVersion kaloSessionA kaloSessionB "
                                  "kaloRefCountA kaloRefCountB sessionBShared "
                                : " fenuInterfaceVersion fenuSession fenuRefCount ";
    for (const std::string& field : before.Changed()) {
      const std::string& allowed =
          status != 0 && kRecord.find(" " + field + " ") != kRecord.npos ? kRecord : own;
      if (allowed.find(" " + field + " ") == std::string::npos) wrong_ += field + " changed; ";
    }
  }

  void CheckRecord(const Arguments& a, StateSnapshot& before, uint32_t status) {
    if (status == 0) return;
    const bool own = IsAny("StartIoEx StartIo") && operations.empty();
    const uint32_t source = !own ? 1 : before->kaloSessionA == nullptr ? 2 : 3;
    Expect("source", state.lastErrorSource, source);
    const uint32_t codes[] = {state.apiErrorCode, state.kaloErrorCode, state.fenuErrorCode};
    Expect("code", codes[source - 1], status == 1 ? 0xFFFFFFFF : status);
    if (own) return;
    const void* context = Opens() ? reinterpret_cast<void*>(0xDEADBEEFull) : SessionOf(a, before);
    Expect("context", const_cast<const void*>(state.lastErrorContext), context);
    if (Opens() || context == nullptr) return;
    const auto* session = static_cast<const ClientSession*>(context);
    Expect("session's status", session->lastErrorStatus, static_cast<int32_t>(state.apiErrorCode));
  }

  const StateSnapshot fresh_;
  // The sessions of the fields A, B and FENU, or null. After them, sessions that no field holds.
  std::vector<ClientSession*> live_ = std::vector<ClientSession*>(3);
  size_t leaked_ = 0;
  std::string wrong_;
};

}  // namespace test
