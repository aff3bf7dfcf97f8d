// Random sequences of all entry points with random device faults, and with exceptions that the
// device cannot bring about, held against the model of the rules. KALODLL_MODEL_SEED and
// KALODLL_MODEL_SEQUENCES choose another seed and more sequences; a failure prints the shortest
// sequence that was seen to fail.

#include <algorithm>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

#include "tests/api/model_calls.h"

extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace test {
namespace {

using zulisim::Operation;

// What runs now, for a run that the sanitizer ends.
std::string running;

zulisim::EngineOptions Options() {
  zulisim::EngineOptions options;
  options.keepRecords = false;
  for (zulisim::Client& client : options.clients) {
    client.maxMessageLength = 0x1ab;
    client.protocolVersion = 'A';  // must print as a number
  }
  return options;
}

class ModelTest : public LibraryTest {
 protected:
  ModelTest() : LibraryTest(Options()) {
    // Numbers that decimal and hexadecimal write differently.
    while (dup(STDERR_FILENO) < 20) {
    }
  }

  void OnOperation(const zulisim::OperationRecord& record) override {
    Add("<" + std::string(OperationName(record.operation)) +
        (record.client.empty() ? "" : " " + record.client) +
        (record.result != -1 ? "" : " " + zulisim::ErrnoName(record.error)) + ">");
    if (record.operation == Operation::kOpen && record.result != -1) {
      opened_.push_back(record.descriptor);
      open_.insert(record.descriptor);
    }
    if (record.operation == Operation::kClose) open_.erase(record.descriptor);
  }

  // Runs a sequence from a fresh state; tells the first difference, if any.
  std::optional<std::string> Run(const Sequence& sequence) {
    running = "the sequence that was running:\n" + Describe(sequence);
    TakeRaw();
    Model model(traced);
    sink->onLine = [this] {
      Logger::logBase.level = traced ? 100 : 0;
      errno = 7777;  // no sink may disturb what the library reads
    };
    sink->onLine();
    std::string difference;
    for (size_t i = 0; i < sequence.size() && difference.empty(); ++i) {
      difference = RunStep(model, sequence[i]);
      if (!difference.empty()) difference = "step " + std::to_string(i + 1) + ": " + difference;
    }
    Reset(model);
    return difference.empty() ? std::nullopt : std::optional(difference);
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
  // Leaked descriptors are part of the contract; the runs must not starve of them.
  void Reset(Model& model) {
    engine.ClearFaults();
    trap = {};
    for (const auto& session : model.sessions) {
      if (session->live) SessionCleanup(const_cast<void*>(session->address));
    }
    const std::set<int> leaked = open_;
    for (const int descriptor : leaked) close(descriptor);
    fresh_.Restore();
  }

  std::string RunStep(Model& model, const Step& step) {
    model.Begin();
    model.faults = step.faults;
    model.trap = trap = step.trap;
    engine.ClearFaults();
    for (const CallFault& fault : step.faults) {
      zulisim::FaultEffect effect = zulisim::ErrnoFault{fault.error};
      if (fault.error == ENODEV) effect = zulisim::DeviceLoss{};
      engine.AddFault(
          {fault.operation, Count(fault.operation) + 1 + fault.first, fault.times, effect});
    }
    const auto& [name, make, predict] = kCalls[step.call];
    Arguments arguments(model, step);
    opened_.clear();
    const uint32_t actual = StatusOf(make, arguments);
    model.opened = opened_;
    const uint32_t expected = StatusOf(predict, arguments);
    size_t sinks = 0;  // the log file's: they would grow with every step
    for (; Logger::logBase.sinks.size() > 1; ++sinks) {
      delete Logger::logBase.sinks.back();
      Logger::logBase.sinks.pop_back();
    }
    std::ostringstream text;
    Differs(text, "status", expected, actual);
    Differs(text, "number of new sinks", model.sinks, sinks);
    if (std::strstr(name, "Init3") != nullptr) {
      Differs(text, "handle", model.handle, static_cast<const void*>(arguments.handle));
    }
    CompareTold(text, model.told);
    CompareState(text, model);
    return text.str();
  }

  template <typename Wanted, typename Found>
  static void Differs(std::ostream& text, const char* what, const Wanted& wanted,
                      const Found& found) {
    if (!(wanted == found)) text << what << " is " << found << ", not " << wanted << "; ";
  }

  void CompareTold(std::ostream& text, const Lines& expected) {
    const Lines told = TakeRaw();
    const auto alike = [](const std::string& found, const std::string& wanted) {
      return found == wanted || WithoutTag(found) == wanted;
    };
    const auto [found, wanted] =
        std::mismatch(told.begin(), told.end(), expected.begin(), expected.end(), alike);
    const std::string nothing = "nothing";
    Differs(text, "a line", wanted == expected.end() ? nothing : *wanted,
            found == told.end() ? nothing : *found);
  }

  void CompareState(std::ostream& text, Model& model) {
    const auto pointer = [](const Model::Session* session) {
      return static_cast<ClientSession*>(const_cast<void*>(Model::AddressOf(session)));
    };
    model.want->kaloSessionA = pointer(model.a);
    model.want->kaloSessionB = pointer(model.b);
    model.want->fenuSession = pointer(model.fenu);
    for (const std::string& field : model.want.Changed()) text << field << " is not as it should; ";
    Differs(text, "open descriptors", model.descriptors, engine.OpenDescriptors());
    for (const auto& session : model.sessions) {
      if (!session->live) continue;
      const auto* real = static_cast<const ClientSession*>(session->address);
      Differs(text, "lastErrorStatus", session->errorStatus, real->lastErrorStatus);
      Differs(text, "lastErrorText", session->errorText,
              std::string(real->lastErrorText, session->errorText.size()));
    }
  }

  const StateSnapshot fresh_;
  std::set<int> open_;
  std::vector<int> opened_;
};

Sequence RandomSequence(std::mt19937& random) {
  const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
  Sequence sequence(4 + below(40));
  for (Step& step : sequence) {
    step.call = below(std::size(kCalls));
    // Other code writes the state now and then only.
    if (step.call == kWriteState && below(3) != 0) step.call = 1;
    step.argument = below(64);
    step.shape = below(3) != 0 ? 0 : below(16);
    step.tag = below(2) != 0 ? 0 : below(std::size(kTags));
    for (unsigned i = below(4); i < 2; ++i) {
      const auto operation = static_cast<Operation>(below(zulisim::kOperationCount));
      const bool loses = operation != Operation::kClose && below(2) != 0;
      step.faults.push_back({operation, below(5), 1 + below(6), loses ? ENODEV : EIO});
    }
    if (below(8) == 0) {
      step.trap = {static_cast<Point>(1 + below(3)), static_cast<Trap::Kind>(below(3)), below(2)};
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
  if (__sanitizer_set_death_callback != nullptr) {
    __sanitizer_set_death_callback([] { std::cerr << running; });
  }
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
}

}  // namespace
}  // namespace test
