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
  kProvisioningStartIo,
  kWriteState
};
constexpr const char* kCallNames[] = {"KaloStateInit", "KaloInit3",           "StartIoEx3",
                                      "StartIo3",      "KaloCleanup3",        "KaloInit",
                                      "KaloCleanup",   "StartIoEx",           "StartIo",
                                      "FenuInit3",     "FenuCleanup3",        "FenuInit",
                                      "FenuCleanup",   "ProvisioningStartIo", "gKaloDllState ="};
constexpr unsigned kCalls = std::size(kCallNames);

// Private data and its length on entry; what they ask for, if anything.
constexpr struct {
  const char* data;
  unsigned int length;
  const char* wrapper;
} kTags[] = {{"", 16, ""},
             {"IOCTLHND", 9, "allocation"},
             {"IOCTLFRE", 9, "free"},
             {"IOCTLHNDx", 9, "allocation"},
             {"IOCTLHNX", 9, ""},
             {"IOCTLHND", 8, ""},
             {"IOCTLFRE", 10, ""}};

struct Step {
  Call call;
  unsigned argument;  // chooses handle, command, version, ...
  unsigned shape;
  unsigned tag;
  std::optional<CallFault> fault;
};
using Sequence = std::vector<Step>;

std::string Describe(const Sequence& sequence) {
  std::ostringstream text;
  for (const Step& step : sequence) {
    text << "  " << kCallNames[static_cast<int>(step.call)] << " #" << step.argument
         << (step.shape & kNullInput ? " input=null" : "")
         << (step.shape & kNullOutput ? " output=null" : "")
         << " lengths=" << InputLength(step.shape) << ',' << OutputLength(step.shape) << ' '
         << kTags[step.tag].data;
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
    LibraryTest::OnOperation(record);
    if (record.operation == Operation::kOpen && record.result != -1)
      open_.insert(record.descriptor);
    if (record.operation == Operation::kClose) open_.erase(record.descriptor);
  }

  // Runs a sequence from a fresh state; tells the first difference, if any.
  std::optional<std::string> Run(const Sequence& sequence) {
    running = "the sequence that was running:\n" + Describe(sequence);
    TakeRaw();
    Model model(traced);
    sink->onLine = [this] { Logger::logBase.level = traced ? 100 : 0; };
    sink->onLine();
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

  bool traced = false;

 private:
  void Reset(Model& model) {
    engine.ClearFaults();
    for (const auto& session : model.sessions) {
      if (session->live) SessionCleanup(const_cast<void*>(session->address));
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
    const auto [actual, expected] = Make(model, step, &handle);
    size_t sinks = 0;  // the log file's: they would grow with every step
    for (; Logger::logBase.sinks.size() > 1; ++sinks) {
      delete Logger::logBase.sinks.back();
      Logger::logBase.sinks.pop_back();
    }
    std::ostringstream text;
    Differs(text, "status", expected, actual);
    Differs(text, "number of new sinks", model.sinks, sinks);
    if (step.call == Call::kKaloInit3 || (step.call == Call::kFenuInit3 && actual == 0)) {
      Differs(text, "handle", model.handle, static_cast<const void*>(handle));
    }
    CompareTold(text, model.told);
    CompareState(text, model);
    if (text.str().empty()) return std::nullopt;
    return text.str();
  }

  // Actual and expected status, in this order: braces keep it, and the model comes second.
  std::pair<uint32_t, uint32_t> Make(Model& model, const Step& step, void** handle) {
    static constexpr uint32_t kVersions[] = {0x30000, 0x30002, 0, 0x30001};
    static constexpr uint32_t kCommands[] = {0x10, 0x30000, 0x3FFFF, 0x40001};
    const unsigned n = step.argument;
    const uint32_t command = kCommands[n % 4];

    Bytes request = Message(command);
    Bytes reply(32);
    unsigned char* const in = step.shape & kNullInput ? nullptr : request.data();
    unsigned char* const out = step.shape & kNullOutput ? nullptr : reply.data();
    const unsigned inLength = InputLength(step.shape), outLength = OutputLength(step.shape);
    unsigned char data[16] = {};
    std::strcpy(reinterpret_cast<char*>(data), kTags[step.tag].data);
    unsigned int dataLength = kTags[step.tag].length;
    const std::string wrapper = kTags[step.tag].wrapper;

    // Live sessions may be used; those destroyed, or null, may be given back.
    const size_t known = model.sessions.size();
    Model::Session* any =
        n % (known + 1) == known ? nullptr : model.sessions[n % (known + 1)].get();
    void* const released = const_cast<void*>(Model::AddressOf(any));
    Model::Session* live = model.LiveAt(released);
    void* const used = const_cast<void*>(Model::AddressOf(live));

    switch (step.call) {
      case Call::kKaloStateInit: {
        KALO_STATE_INIT_PARAMS values{kVersions[n % 4], n / 4 % 4};
        KALO_STATE_INIT_PARAMS* const params = n < 56 ? &values : nullptr;
        return {KaloStateInit(params), model.KaloStateInit(params)};
      }
      case Call::kKaloInit3:
        return {KaloInit3(handle), model.KaloInit3(kUnwritten)};
      case Call::kStartIoEx3:
        return {StartIoEx3(used, in, inLength, out, outLength, data, &dataLength),
                model.StartIoEx3(live, step.shape, wrapper)};
      case Call::kStartIo3:
        return {StartIo3(used, in, inLength, out, outLength), model.StartIo3(live, step.shape)};
      case Call::kKaloCleanup3:
        return {KaloCleanup3(released), model.KaloCleanup3(released)};
      case Call::kKaloInit:
        return {KaloInit(), model.KaloInit()};
      case Call::kKaloCleanup:
        return {KaloCleanup(), model.KaloCleanup()};
      case Call::kStartIoEx:
        return {StartIoEx(in, inLength, out, outLength, data, &dataLength),
                model.StartIoEx(command, step.shape, wrapper)};
      case Call::kStartIo:
        return {StartIo(in, inLength, out, outLength), model.StartIoEx(command, step.shape, "")};
      case Call::kFenuInit3:
        return {FenuInit3(handle), model.FenuInit3()};
      case Call::kFenuCleanup3:
        return {FenuCleanup3(released), model.FenuCleanup3(live)};
      case Call::kFenuInit:
        return {FenuInit(), model.FenuInit()};
      case Call::kFenuCleanup:
        return {FenuCleanup(), model.FenuCleanup()};
      case Call::kProvisioningStartIo:
        return {ProvisioningStartIo(in, inLength, out, outLength),
                model.StartIoEx3(nullptr, step.shape, "")};
      case Call::kWriteState:
        WriteState(model, n);
    }
    return {0, 0};
  }

  // A damaged generation, or other code with handles of its own.
  void WriteState(Model& model, unsigned n) {
    static constexpr uint32_t kGenerations[] = {3, 0, 1};
    const uint32_t generation = kGenerations[n / 3 % 3];
    if (n % 3 == 0) state.kaloInterfaceVersion = model.want->kaloInterfaceVersion = generation;
    if (n % 3 == 1) state.fenuInterfaceVersion = model.want->fenuInterfaceVersion = generation;
    if (n % 3 != 2) return;
    for (uint32_t KaloDllState::*count :
         {&KaloDllState::kaloRefCountA, &KaloDllState::kaloRefCountB,
          &KaloDllState::fenuRefCount}) {
      if (state.*count != 0) state.*count = model.want.operator->()->*count = n / 3 % 2 ? 1 : 10;
    }
  }

  template <typename Wanted, typename Found>
  static void Differs(std::ostream& text, const char* what, const Wanted& wanted,
                      const Found& found) {
    if (!(wanted == found)) text << what << " is " << found << ", not " << wanted << "; ";
  }

  void CompareTold(std::ostream& text, const Lines& expected) {
    Lines told;
    for (const std::string& line : TakeRaw()) {
      // Those of the transport have tests of their own.
      const bool ours = std::string("KFS<").find(line[0]) != std::string::npos;
      if (ours || !traced) told.push_back(line);
    }
    for (size_t i = 0; i < std::max(told.size(), expected.size()); ++i) {
      const std::string found = i < told.size() ? told[i] : "nothing";
      const std::string wanted = i < expected.size() ? expected[i] : "nothing";
      if (found != wanted && WithoutTag(found) != wanted) Differs(text, "a line", wanted, found);
    }
  }

  void CompareState(std::ostream& text, Model& model) {
    const auto check = [&text](const char* what, const auto& wanted, const auto& found) {
      Differs(text, what, wanted, found);
    };
    const auto pointer = [](const Model::Session* session) {
      return static_cast<ClientSession*>(const_cast<void*>(Model::AddressOf(session)));
    };
    model.want->kaloSessionA = pointer(model.a);
    model.want->kaloSessionB = pointer(model.b);
    model.want->fenuSession = pointer(model.fenu);
    for (const std::string& field : model.want.Changed()) text << field << " is not as it should; ";
    check("open descriptors", model.descriptors, engine.OpenDescriptors());
    for (const auto& session : model.sessions) {
      if (!session->live) continue;
      const auto* real = static_cast<const ClientSession*>(session->address);
      check("lastErrorStatus", session->errorStatus, real->lastErrorStatus);
      check("lastErrorText", session->errorText,
            std::string(real->lastErrorText, session->errorText.size()));
    }
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
    if (step.call == Call::kWriteState && below(3) != 0) step.call = Call::kKaloInit3;
    step.argument = below(64);
    step.shape = below(3) != 0 ? 0 : below(16);
    step.tag = below(2) != 0 ? 0 : below(std::size(kTags));
    if (below(4) == 0) {
      step.fault = CallFault{static_cast<Operation>(below(zulisim::kOperationCount)), below(3),
                             1 + below(6), below(2) == 0};
    }
  }
  return sequence;
}

#ifdef __SANITIZE_THREAD__  // which has little to see in one thread
constexpr unsigned kSequences = 1000;
#else
constexpr unsigned kSequences = 10000;
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
    traced = i % 2 == 1;
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
