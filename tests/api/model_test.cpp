// All entry points with device faults, and with exceptions that the device cannot bring about, held
// against the model of the rules: random sequences of calls, and all that can become of one call.
// KALODLL_MODEL_SEED and KALODLL_MODEL_SEQUENCES choose another seed and more sequences.

#include <iostream>

#include "tests/api/model_fixture.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using zulisim::Operation;

#if defined __SANITIZE_THREAD__  // which has little to see in one thread
constexpr unsigned kSequences = 1000;
constexpr bool kWalks = false, kWalksAll = false;
#elif defined __SANITIZE_ADDRESS__
constexpr unsigned kSequences = 10000;
constexpr bool kWalks = true, kWalksAll = false;
#elif defined __clang__ || !defined __OPTIMIZE__  // half a million paths in the release build only
constexpr unsigned kSequences = 10000;
constexpr bool kWalks = true, kWalksAll = false;
#else
constexpr unsigned kSequences = 10000;
constexpr bool kWalks = true, kWalksAll = true;
#endif

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

class Sequences : public ModelTest {};

TEST_F(Sequences, drawn_at_random_do_what_the_rules_say) {
  const unsigned seed = FromEnvironment("KALODLL_MODEL_SEED", 20240607);
  const unsigned sequences = FromEnvironment("KALODLL_MODEL_SEQUENCES", kSequences);
  std::mt19937 random(seed);
  for (unsigned i = 0; i < sequences; ++i) {
    Sequence sequence = RandomSequence(random);
    traced = i % 2 == 1;
    std::optional<std::string> difference = Run(sequence);
    if (!difference) continue;
    // What is not needed for a failure goes, once through.
    for (size_t step = sequence.size(); step-- != 0;) {
      Sequence shorter = sequence;
      shorter.erase(shorter.begin() + static_cast<long>(step));
      if (const auto found = Run(shorter)) difference = found, sequence = shorter;
    }
    FAIL() << "sequence " << i << " of seed " << seed << "; the shortest that was seen:\n"
           << Describe(sequence) << *difference;
  }
}

// The device's operations in one call, each with an outcome: an errno, kShort or 0.
using Path = std::vector<std::pair<Operation, int>>;

class EveryPath : public ModelTest {
 protected:
  // Runs the last call of a sequence with the outcomes given, and success where they end; then, for
  // each of the operations that this led to, with each outcome that it can have instead.
  void Walk(Sequence sequence, Path path = {}) {
    Step& call = sequence.back();
    call.faults.clear();
    unsigned counts[zulisim::kOperationCount] = {};
    for (const auto& [operation, outcome] : path) {
      const unsigned number = counts[static_cast<int>(operation)]++;
      if (outcome != 0) call.faults.push_back({operation, number, 1, outcome});
    }
    const auto difference = Run(sequence);
    ASSERT_EQ(difference.value_or(""), "") << Describe(sequence);
    ++paths_;
    const std::vector<Operation> met = operationsOfCall_;
    for (size_t i = path.size(); i < met.size(); ++i) {
      const bool transfers = met[i] == Operation::kRead || met[i] == Operation::kWrite;
      path.emplace_back(met[i], 0);
      for (const int outcome : transfers ? std::vector{kShort, ENODEV, EIO} : std::vector{EIO}) {
        path.back().second = outcome;
        Walk(sequence, path);
        if (HasFatalFailure()) return;
      }
      path.back().second = 0;
    }
  }

  void Print(const std::string& of) {
    std::cout << of << ": " << paths_ << " paths\n";
    paths_ = 0;
  }

 private:
  // What is left in the device.
  std::string Inspect(const Model& model) override {
    operationsOfCall_ = operations;
    const Model::Session* session = model.fenu;
    if (session == nullptr || !session->open || session->lost) return "";
    const auto* real = static_cast<const ClientSession*>(session->address);
    engine.ClearFaults();
    unsigned pending = 0;
    for (char message[32]; read(real->dremSessions[0]->deviceFd, message, 32) > 0;) ++pending;
    return pending == session->pending ? "" : std::to_string(pending) + " messages are left";
  }

  std::vector<Operation> operationsOfCall_;
  uint64_t paths_ = 0;
};

class EveryPathOfACommand : public EveryPath,
                            public testing::WithParamInterface<std::pair<bool, unsigned>> {};

TEST_P(EveryPathOfACommand, ends_as_the_rules_say) {
  const unsigned shape = GetParam().second;
  negative = GetParam().first;
  traced = true;
  const bool halfAMillion = negative && shape == 0;
  if (!(halfAMillion ? kWalksAll : kWalks)) GTEST_SKIP() << "too many paths for this build";
  Walk({{kFenuInit3}, {kStartIoEx3, 0, shape}});
  Print("command");
}

INSTANTIATE_TEST_SUITE_P(Status, EveryPathOfACommand,
                         testing::Values(std::pair(false, 0), std::pair(false, kNullPrivateData),
                                         std::pair(false, kNullPrivateLength),
                                         std::pair(true, kNullPrivateData),
                                         std::pair(true, kNullPrivateLength), std::pair(true, 0)),
                         [](const auto& given) {
                           return std::string(given.param.first ? "negative" : "positive") +
                                  (given.param.second == 0 ? "_with_private_data"
                                   : given.param.second == kNullPrivateData
                                       ? "_without_private_data"
                                       : "_without_its_length");
                         });

TEST_F(EveryPath, of_an_initialisation_ends_as_the_rules_say) {
  const Step announce = {kKaloStateInit, 0}, damage = {kWriteState, 6};
  for (const bool trace : {false, true}) {
    traced = trace;
    for (const bool damaged : {false, true}) {
      const Sequence first = damaged ? Sequence{announce, damage} : Sequence{announce};
      Sequence second = first;
      second.insert(second.begin() + 1, {kKaloInit3});
      for (Sequence before : {first, second}) {
        before.push_back({kKaloInit3});
        Walk(before);
      }
    }
  }
  Print("initialisation");
}

}  // namespace
}  // namespace test
