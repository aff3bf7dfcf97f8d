#pragma once

#include "tests/api/calls.h"

namespace test {

// One call of a random sequence, with the device faults during the call.
struct Step {
  const Call* call;
  unsigned handle, defects, tag;  // a bit for each defect
  uint32_t command;
  KALO_STATE_INIT_PARAMS params;
  std::vector<zulisim::Fault> faults;
};
using Sequence = std::vector<Step>;

template <typename Random>
Sequence RandomSequence(Random random) {
  using zulisim::Operation;
  const auto below = [&random](size_t n) { return static_cast<unsigned>(random() % n); };
  static constexpr uint32_t kCommands[] = {0x10, 0x30000, 0x3FFFF, 0x40001, 0x2FFFF};
  static constexpr uint32_t kVersions[] = {0x30000, 0x30002, 0x30000, 0x30001};
  Sequence sequence(4 + below(40));
  for (Step& step : sequence) {
    step.call = &kCalls[below(std::size(kCalls))];
    step.handle = below(4);
    step.defects = below(3) != 0 ? 0 : below(1 << kDrawnDefects);
    step.tag = below(2) != 0 ? 0 : below(std::size(kTags));
    step.command = kCommands[below(std::size(kCommands))];
    step.params = {kVersions[below(4)], below(3)};
    for (unsigned i = below(4); i < 2; ++i) {
      const auto operation = static_cast<Operation>(below(zulisim::kOperationCount));
      zulisim::FaultEffect effect = zulisim::DeviceLoss{};
      if (operation == Operation::kClose || below(2) == 0) {
        effect = zulisim::ErrnoFault{EIO + static_cast<int>(below(8))};
      }
      const unsigned first = 1 + below(5);
      step.faults.push_back({operation, effect, {first, 1 + below(6)}});
    }
    if (below(3) != 0) continue;
    const zulisim::ReplyFault refusal{zulisim::kRefusedStatus};
    step.faults.push_back({Operation::kWrite, refusal, {1, zulisim::kForever}});
  }
  return sequence;
}

// Runs calls and checks rules that hold after any call. The transcripts cover the log, the handles,
// the counts and the texts of errors.
class SequencesTest : public CallsTest {
 protected:
  // Makes the call. Returns the rules that it breaks, or "".
  std::string Run(const Step& step) {
    engine.ClearFaults();
    for (const zulisim::Fault& fault : step.faults) engine.AddFault(fault);
    Arguments arguments(step.command);
    arguments.Set(kTags[step.tag]);
    for (unsigned i = 0; i < kDrawnDefects; ++i) {
      if ((step.defects >> i & 1) != 0) kDefects[i].apply(arguments);
    }
    arguments.values = step.params;
    arguments.used = state.provisioningSession = SessionOf(step);
    operations.clear();
    broken_.clear();
    sink->onLine();  // sets the log's level
    const StateSnapshot before;
    const bool open =
        connected.count(arguments.used) != 0 && connected[arguments.used] == ClientOf(step.command);
    const uint32_t status = Make(*step.call, arguments);
    TrimSinks();
    TakeRaw();
    if (!IsChecked()) return "";
    Rule(step.call->kind != Kind::kAnnounce ||
             state.stateInitFlag == (step.params.stateInitOption == 1),
         "option");
    CheckStatus(*step.call, arguments, open, status);
    if (status != 0) CheckRecord(*step.call, arguments, *before, status);
    for (const std::string& field : before.Changed()) {
      Rule(Matches(field, status != 0 ? ".*Error.*" : step.call->fields), field);
    }
    CheckSessions(*before);
    return broken_;
  }

  // Closes everything. Returns the number of descriptors that stayed open: by contract, failed
  // connections leave them open.
  size_t Finish() {
    engine.ClearFaults();
    const auto open = connected;
    for (const auto& session : open) SessionCleanup(session.first);
    EXPECT_TRUE(connected.empty());
    connected.clear();
    const std::set<int> left = descriptors;
    for (const int descriptor : left) close(descriptor);
    engine.LoseDevice();  // this also drops replies that wait for the next connection
    fresh_.Restore();
    return left.size();
  }

  virtual uint32_t Make(const Call& call, Arguments& arguments) { return call.make(arguments); }
  // Returns false if the rules do not apply to the last call.
  virtual bool IsChecked() const { return true; }

 private:
  void Rule(bool holds, std::string_view name) {
    if (!holds) broken_ += std::string(name) + "; ";
  }

  static bool Matches(const std::string& text, const char* form) {
    static std::map<const char*, std::regex> compiled;
    return std::regex_match(text, compiled.try_emplace(form, form).first->second);
  }

  // Removes the sinks of the log file. Otherwise their number would grow with every step.
  static void TrimSinks() {
    for (auto& all = Logger::logBase.sinks; all.size() > 1;) {
      delete all.back();
      all.pop_back();
      all.shrink_to_fit();  // so that the next sink allocates memory
    }
  }

  static const _GUID* ClientOf(uint32_t command) {
    return command >> 16 == 3 ? &ClientSession::FENU_CLIENT_GUID : &ClientSession::KALO_CLIENT_GUID;
  }

  // Returns the session that the call selects, or a drawn one. Only StartIoEx may get the address
  // of a closed session.
  ClientSession* SessionOf(const Step& step) const {
    ClientSession* const fields[] = {state.kaloSessionA, state.kaloSessionB, state.fenuSession,
                                     nullptr};
    if (step.call->kind == Kind::kRoute) return fields[step.command >> 16 == 3 ? 2 : 0];
    if (step.call->name == "FenuCleanup3") return fields[2];
    return connected.count(fields[step.handle]) != 0 ? fields[step.handle] : nullptr;
  }

  void CheckStatus(const Call& call, const Arguments& a, bool open, uint32_t status) {
    const bool routed = call.kind == Kind::kRoute, sends = routed || call.kind == Kind::kSend;
    const bool wrapper = call.name.rfind("StartIoEx", 0) == 0 && a.AsksForWrapper();
    uint32_t refusal = 0;
    if (sends) {
      const uint32_t tooShort = a.inLength < 16 ? 3 : a.outLength < 16 ? 4 : 0;
      refusal = a.in == nullptr || a.out == nullptr || (!routed && a.used == nullptr) ? 2
                : wrapper && !routed                                                  ? 0
                : tooShort != 0 || !routed || open                                    ? tooShort
                                                                                      : 6;
    }
    const char last = operations.empty() ? '\0' : operations.back();
    const bool failed = last != '\0' && (sends ? last != 'r' : last == 'O' || last == 'I');
    Rule(status == (failed ? 1 : refusal), "status");
    Rule(last == '\0' || (refusal == 0 && Matches(operations, sends ? kExchange : "O|oI|oi|c*")),
         "operations");
    Rule(last == '\0' || !wrapper, "wrapper");
  }

  void CheckSessions(const KaloDllState& before) {
    std::map<ClientSession*, const _GUID*> expected;
    if (state.kaloRefCountA != 0) expected[state.kaloSessionA] = ClientOf(0);
    if (state.kaloRefCountB != 0) expected[state.kaloSessionB] = ClientOf(0);
    if (state.fenuRefCount != 0) expected[state.fenuSession] = ClientOf(0x30000);
    expected.erase(nullptr);  // FenuInit3 after FenuCleanup counts a null handle
    Rule(connected == expected, "sessions");
    // The user of a shared session B follows the first session A, and ends with the last.
    const bool opensA = before.kaloRefCountA == 0 && state.kaloRefCountA != 0;
    const bool closesA = before.kaloRefCountA != 0 && state.kaloRefCountA == 0;
    Rule(state.sessionBShared == (opensA ? state.stateInitFlag : !closesA && before.sessionBShared),
         "sharing");
  }

  void CheckRecord(const Call& call, const Arguments& a, const KaloDllState& before,
                   uint32_t status) {
    const bool earlier = call.kind == Kind::kRoute && operations.empty();
    const uint32_t source = !earlier ? 1 : before.kaloSessionA == nullptr ? 2 : 3;
    Rule(state.lastErrorSource == source, "source");
    Rule(LastErrorCode() == (status == 1 ? 0xFFFFFFFF : status), "code");
    if (earlier) return;
    const bool opens = call.kind == Kind::kOpen;
    Rule(state.lastErrorContext == (opens ? reinterpret_cast<void*>(0xDEADBEEFull) : a.used),
         "context");
    if (opens || a.used == nullptr) return;
    Rule(a.used->lastErrorStatus == static_cast<int32_t>(state.apiErrorCode), "session's status");
  }

  // The operations of an exchange, which reconnects a lost device up to five times.
  static constexpr char kExchange[] =
      "(Wcoi){5}|(Wcoi){0,4}(X|WcO|WcoI)|"
      "(Wcoi){0,4}w((Rcoi){0,4}r)?((Rcoi){5}|(Rcoi){0,4}(r|Z|RcO|RcoI))";

  const StateSnapshot fresh_;
  std::string broken_;
};

}  // namespace test
