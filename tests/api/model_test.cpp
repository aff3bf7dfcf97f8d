// Random sequences of all entry points with random device faults, held against the model of the
// rules. KALODLL_MODEL_SEED and KALODLL_MODEL_SEQUENCES choose another seed and more sequences; a
// failure prints the shortest sequence that was seen to fail.

#include "tests/api/model.h"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <random>
#include <set>
#include <sstream>

#include "tests/support/library_test.h"

extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace test {
namespace {

using zulisim::Operation;

// The last one is other code that writes the state.
enum class Call {
  kKaloStateInit,
  kKaloInit3,
  kStartIoEx3,
  kStartIo3,
  kKaloCleanup3,
  kKaloInit,
  kKaloCleanup,
  kStartIoEx,
  kStartIo,
  kFenuInit3,
  kFenuCleanup3,
  kFenuInit,
  kFenuCleanup,
  kWriteGeneration
};
constexpr const char* kCallNames[] = {"KaloStateInit", "KaloInit3",
                                      "StartIoEx3",    "StartIo3",
                                      "KaloCleanup3",  "KaloInit",
                                      "KaloCleanup",   "StartIoEx",
                                      "StartIo",       "FenuInit3",
                                      "FenuCleanup3",  "FenuInit",
                                      "FenuCleanup",   "gKaloDllState.kaloInterfaceVersion ="};
constexpr int kCalls = 14;

struct Step {
  Call call;
  unsigned argument;  // chooses handle, command, version, ...
  Shape shape;
  std::optional<CallFault> fault;
};
using Sequence = std::vector<Step>;

std::string Describe(const Sequence& sequence) {
  constexpr const char* kShapeNames[] = {"", " output=null", " input=15", " output=15",
                                         " IOCTLHND"};
  std::ostringstream text;
  for (const Step& step : sequence) {
    text << "  " << kCallNames[static_cast<int>(step.call)] << " #" << step.argument
         << kShapeNames[static_cast<int>(step.shape)];
    if (step.fault) {
      text << (step.fault->loss ? ", losing the device at " : ", failing ")
           << OperationName(step.fault->operation) << " +" << step.fault->first << " x"
           << step.fault->times;
    }
    text << '\n';
  }
  return text.str();
}

// What runs now, for a run that the sanitizer or a signal ends.
std::string running;
void TellRunning() {
  const ssize_t written = write(STDERR_FILENO, running.data(), running.size());
  static_cast<void>(written);
}
void TellAndDie(int signal) {
  TellRunning();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

class ModelTest : public LibraryTest {
 protected:
  ModelTest() : LibraryTest(WithoutRecords()) {}

  static zulisim::EngineOptions WithoutRecords() {
    zulisim::EngineOptions options;
    options.keepRecords = false;
    return options;
  }

  // Leaked descriptors are part of the contract; the runs must not starve of them.
  void OnOperation(const zulisim::OperationRecord& record) override {
    if (record.operation == Operation::kOpen && record.result != -1)
      open_.insert(record.descriptor);
    if (record.operation == Operation::kClose) open_.erase(record.descriptor);
  }

  // Runs a sequence from a fresh state; tells the first difference, if any.
  std::optional<std::string> Run(const Sequence& sequence) {
    running = "the sequence that was running:\n" + Describe(sequence);
    Forget();
    Model model;
    std::optional<std::string> difference;
    for (size_t i = 0; i < sequence.size() && !difference; ++i) {
      difference = RunStep(model, sequence[i]);
      if (difference) *difference = "step " + std::to_string(i + 1) + ": " + *difference;
    }
    Reset(model);
    return difference;
  }

  // The shortest sequence that failed on the way, and how; `difference` is that of the whole.
  Sequence Shrink(Sequence sequence, std::string& difference) {
    for (size_t i = 0; i < sequence.size();) {
      Sequence shorter = sequence;
      shorter.erase(shorter.begin() + static_cast<long>(i));
      if (const auto found = Run(shorter)) {
        difference = *found;
        sequence = shorter;
        i = 0;
      } else {
        ++i;
      }
    }
    return sequence;
  }

 private:
  void Reset(Model& model) {
    engine.ClearFaults();
    for (const auto& session : model.sessions) {
      if (session->live && session->address != nullptr) {
        SessionCleanup(const_cast<void*>(session->address));
      }
    }
    const std::set<int> leaked = open_;
    for (const int descriptor : leaked) close(descriptor);
    fresh_.Restore();
  }

  std::optional<std::string> RunStep(Model& model, const Step& step) {
    model.Begin(step.fault);
    engine.ClearFaults();
    if (step.fault) {
      const zulisim::FaultEffect effect =
          step.fault->loss ? zulisim::FaultEffect(zulisim::DeviceLoss{}) : zulisim::ErrnoFault{EIO};
      engine.AddFault({step.fault->operation, Count(step.fault->operation) + 1 + step.fault->first,
                       step.fault->times, effect});
    }
    void* handle = kUnwritten;
    const auto [expected, actual] = Make(model, step, &handle);
    if (Logger::logBase.sinks.size() > 1) {  // the log file's: it would grow with every step
      delete Logger::logBase.sinks.back();
      Logger::logBase.sinks.pop_back();
    }
    TakeLog();
    return Compare(model, step, expected, actual, handle);
  }

  // Expected and actual status.
  std::pair<uint32_t, uint32_t> Make(Model& model, const Step& step, void** handle) {
    static constexpr uint32_t kVersions[] = {0x30000, 0x30002, 0};
    static constexpr uint32_t kCommands[] = {0x10, 0x30000, 0x3FFFF, 0x40001};
    static constexpr uint32_t kGenerations[] = {3, 0, 1};
    const unsigned n = step.argument;
    const uint32_t command = kCommands[n % 4];

    Bytes input = Message(command);
    Bytes output(32);
    unsigned char tag[16] = "IOCTLHND";
    unsigned int tagLength = 9;
    const unsigned int inputLength = step.shape == Shape::kShortInput ? 15 : 32;
    const unsigned int outputLength = step.shape == Shape::kShortOutput ? 15 : 32;
    unsigned char* const out = step.shape == Shape::kNullOutput ? nullptr : output.data();
    const bool tagged = step.shape == Shape::kTag;
    // The short forms carry no private data.
    const Shape untagged = tagged ? Shape::kGood : step.shape;

    // Live sessions may be used; those destroyed, or null, may be given back.
    const size_t known = model.sessions.size();
    Model::Session* any =
        n % (known + 1) == known ? nullptr : model.sessions[n % (known + 1)].get();
    void* const released = const_cast<void*>(Model::AddressOf(any));
    Model::Session* live = model.LiveAt(released);
    void* const used = const_cast<void*>(Model::AddressOf(live));

    switch (step.call) {
      case Call::kKaloStateInit: {
        KALO_STATE_INIT_PARAMS params{kVersions[n % 3], n / 3 % 3};
        return {model.KaloStateInit(params.firmwareApiVersion, params.stateInitOption),
                KaloStateInit(&params)};
      }
      case Call::kKaloInit3:
        return {model.KaloInit3(), KaloInit3(handle)};
      case Call::kStartIoEx3:
        return {model.StartIoEx3(live, step.shape),
                StartIoEx3(used, input.data(), inputLength, out, outputLength,
                           tagged ? tag : nullptr, tagged ? &tagLength : nullptr)};
      case Call::kStartIo3:
        return {model.StartIoEx3(live, untagged),
                StartIo3(used, input.data(), inputLength, out, outputLength)};
      case Call::kKaloCleanup3:
        return {model.KaloCleanup3(released), KaloCleanup3(released)};
      case Call::kKaloInit:
        return {model.KaloInit(), KaloInit()};
      case Call::kKaloCleanup:
        return {model.KaloCleanup(), KaloCleanup()};
      case Call::kStartIoEx:
        return {model.StartIoEx(command, step.shape),
                StartIoEx(input.data(), inputLength, out, outputLength, tagged ? tag : nullptr,
                          tagged ? &tagLength : nullptr)};
      case Call::kStartIo:
        return {model.StartIoEx(command, untagged),
                StartIo(input.data(), inputLength, out, outputLength)};
      case Call::kFenuInit3:
        return {model.FenuInit3(), FenuInit3(handle)};
      case Call::kFenuCleanup3:
        return {model.FenuCleanup3(live), FenuCleanup3(released)};
      case Call::kFenuInit:
        return {model.FenuInit(), FenuInit()};
      case Call::kFenuCleanup:
        return {model.FenuCleanup(), FenuCleanup()};
      case Call::kWriteGeneration:
        state.kaloInterfaceVersion = model.kaloGeneration = kGenerations[n % 3];
    }
    return {0, 0};
  }

  std::optional<std::string> Compare(Model& model, const Step& step, uint32_t expected,
                                     uint32_t actual, void* handle) {
    std::ostringstream text;
    const auto check = [&text](const char* what, const auto& wanted, const auto& found) {
      if (!(wanted == found)) text << what << " is " << found << ", not " << wanted << "; ";
    };
    check("status", expected, actual);
    if (Model::Session* opened = model.opened) {
      const void* address = opened == model.a   ? state.kaloSessionA
                            : opened == model.b ? state.kaloSessionB
                                                : state.fenuSession;
      if (model.LiveAt(address) != nullptr)
        text << "a live session's address was given out again; ";
      opened->address = address;
    }
    check("kaloInterfaceVersion", model.kaloGeneration, state.kaloInterfaceVersion);
    check("fenuInterfaceVersion", model.fenuGeneration, state.fenuInterfaceVersion);
    check("kaloSessionA", Model::AddressOf(model.a), static_cast<void*>(state.kaloSessionA));
    check("kaloSessionB", Model::AddressOf(model.b), static_cast<void*>(state.kaloSessionB));
    check("fenuSession", Model::AddressOf(model.fenu), static_cast<void*>(state.fenuSession));
    check("kaloRefCountA", model.countA, state.kaloRefCountA);
    check("kaloRefCountB", model.countB, state.kaloRefCountB);
    check("fenuRefCount", model.fenuCount, state.fenuRefCount);
    check("sessionBShared", model.sessionBShared, state.sessionBShared);
    check("apiErrorText", model.errors[0].text, std::string(state.apiErrorText));
    check("kaloErrorText", model.errors[1].text, std::string(state.kaloErrorText));
    check("fenuErrorText", model.errors[2].text, std::string(state.fenuErrorText));
    check("apiErrorCode", model.errors[0].code, state.apiErrorCode);
    check("kaloErrorCode", model.errors[1].code, state.kaloErrorCode);
    check("fenuErrorCode", model.errors[2].code, state.fenuErrorCode);
    check("lastErrorSource", model.lastSource, state.lastErrorSource);
    check("lastErrorContext", model.lastContext, state.lastErrorContext);
    check("open descriptors", model.descriptors, engine.OpenDescriptors());
    if (step.call == Call::kKaloInit3 || step.call == Call::kFenuInit3) {
      check("handle", model.handle ? Model::AddressOf(*model.handle) : kUnwritten, handle);
    }
    for (const auto& session : model.sessions) {
      if (!session->live || session->address == nullptr) continue;
      const auto* real = static_cast<const ClientSession*>(session->address);
      check("lastErrorStatus", session->errorStatus, real->lastErrorStatus);
      check("lastErrorText", session->errorText,
            std::string(real->lastErrorText, session->errorText.size()));
    }
    if (text.str().empty()) return std::nullopt;
    return text.str();
  }

  static inline void* const kUnwritten = reinterpret_cast<void*>(0x5A5A);
  const StateSnapshot fresh_;
  std::set<int> open_;
};

Sequence RandomSequence(std::mt19937& random) {
  const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
  Sequence sequence(4 + below(40));
  for (Step& step : sequence) {
    step.call = static_cast<Call>(below(kCalls));
    // Other code writes the state now and then only.
    if (step.call == Call::kWriteGeneration && below(3) != 0) step.call = Call::kKaloInit3;
    step.argument = below(64);
    step.shape = below(3) != 0 ? Shape::kGood : static_cast<Shape>(below(kShapes));
    if (below(4) == 0) {
      step.fault = CallFault{static_cast<Operation>(below(zulisim::kOperationCount)), below(3),
                             1 + below(6), below(2) == 0};
    }
  }
  return sequence;
}

#ifdef __SANITIZE_THREAD__  // which has little to see in one thread
constexpr unsigned kSequences = 2000;
#else
constexpr unsigned kSequences = 20000;
#endif

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

TEST_F(ModelTest, random_sequences_do_what_the_rules_say) {
  const unsigned seed = FromEnvironment("KALODLL_MODEL_SEED", 20240607);
  const unsigned sequences = FromEnvironment("KALODLL_MODEL_SEQUENCES", kSequences);
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(TellRunning);
  for (const int signal : {SIGSEGV, SIGABRT}) std::signal(signal, TellAndDie);
  std::mt19937 random(seed);
  for (unsigned i = 0; i < sequences; ++i) {
    const Sequence sequence = RandomSequence(random);
    std::optional<std::string> difference = Run(sequence);
    if (!difference) continue;
    const Sequence shortest = Shrink(sequence, *difference);
    FAIL() << "sequence " << i << " of seed " << seed << "; at its shortest:\n"
           << Describe(shortest) << *difference;
  }
  RecordProperty("sequences", static_cast<int>(sequences));
}

}  // namespace
}  // namespace test
