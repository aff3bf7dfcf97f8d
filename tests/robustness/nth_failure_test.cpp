// Fails each call of libc that an entry point makes, one after the other, in random sequences: all
// is as the model foretells, then and afterwards.

#include "tests/api/model_fixture.h"
#include "tests/robustness/libc_faults.h"
#include "tests/support/descriptors.h"

extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace test {
namespace {

constexpr const char* kFailing[] = {"malloc", "lock", "unlock", "fopen", "write"};

class NthFailure : public ModelTest {
 protected:
  // Runs a sequence in which the n-th call at a step fails. True when there was such a call.
  bool Fail(const Sequence& sequence, size_t at, const std::string& call, uint32_t number) {
    const bool memory = call == "malloc";
    bool struck = false;
    Model model(traced);
    Start();
    number_ = number;
    for (size_t i = 0; i < sequence.size() && !(struck && memory); ++i) {
      call_ = i == at ? call : "";
      const std::string difference = RunStep(model, sequence[i]);
      if (i == at) struck = faults::Disarm();
      if (struck && memory) {
        // What comes of it depends on where; it is the call that fails, or nothing is told of it.
        const char* texts[] = {"", state.apiErrorText, state.kaloErrorText, state.fenuErrorText};
        if (difference.rfind("status", 0) == 0) {
          EXPECT_EQ(status_, 1u);
          EXPECT_STREQ(texts[state.lastErrorSource], "std::bad_alloc");
        }
      } else {
        EXPECT_EQ(difference, "");
      }
      for (CRITICAL_SECTION* lock : {&state.stateLock, &Logger::logBase.lock}) {
        EXPECT_EQ(pthread_mutex_trylock(lock), 0);
        pthread_mutex_unlock(lock);
      }
    }
    EXPECT_EQ(faults::UnlocksAfterRefusal(), struck && call == "lock" ? 1 : 0);
    const size_t leaked = Reset(model);
    EXPECT_TRUE(!memory || leaked == 0);
    return struck;
  }

  uint32_t Act(const Made& make, Arguments& arguments) override {
    if (!call_.empty()) faults::Arm(call_, number_);
    status_ = ModelTest::Act(make, arguments);
    faults::Disarm();
    return status_;
  }

  std::string call_;
  uint32_t number_ = 0;
  uint32_t status_ = 0;
};

TEST_F(NthFailure, is_as_foretold_and_the_next_call_works) {
  ASSERT_TRUE(faults::Install()) << "the library's linkage table was not found";
  std::set<std::pair<std::string, std::string>> failed;  // entry points, and calls
  std::mt19937 random(1);
  for (int i = 0; i < 12; ++i) {
    Sequence sequence = RandomSequence(random);
    for (Step& step : sequence) step.faults.clear(), step.injected = {};
    traced = i % 2 == 1;
    for (size_t at = 0; at < sequence.size(); ++at) {
      for (const char* call : kFailing) {
        const long descriptors = test::OpenDescriptors();
        for (uint32_t number = 1; Fail(sequence, at, call, number); ++number) {
          failed.insert({kCalls[sequence[at].call].name, call});
          ASSERT_FALSE(HasFailure())
              << call << " no. " << number << " at step " << at + 1 << " of:\n"
              << Describe(sequence);
        }
        EXPECT_EQ(test::OpenDescriptors(), descriptors);
      }
    }
    if (__lsan_do_recoverable_leak_check != nullptr) {
      ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << Describe(sequence);
    }
  }
  std::set<std::string> entryPoints, calls;
  for (const auto& [name, call] : failed) entryPoints.insert(name), calls.insert(call);
  // But for the log file's writes, which libc++ makes by another name.
  EXPECT_GE(calls.size(), std::size(kFailing) - 1);
  EXPECT_EQ(entryPoints.size(), kWriteState);
}

}  // namespace
}  // namespace test
