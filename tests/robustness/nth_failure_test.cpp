// Runs random sequences in which each libc call of an entry point fails once. The entry point must
// report the failure or continue, and the rules must hold for all later calls.

#include "tests/api/sequences.h"
#include "tests/robustness/libc_faults.h"
#include "tests/support/descriptors.h"

namespace test {
namespace {

constexpr const char* kFailing[] = {"malloc", "pthread_mutex_lock", "pthread_mutex_unlock", "fopen",
                                    "write"};

class NthFailure : public SequencesTest {
 protected:
  // Runs a sequence in which the n-th call of a step fails. Returns true if there was such a call.
  bool Fail(const Sequence& sequence, size_t at, const std::string& call, uint32_t number) {
    number_ = number;
    failed_ = false;
    for (size_t i = 0; i < sequence.size(); ++i) {
      call_ = i == at ? call : "";
      EXPECT_EQ(Run(sequence[i]), "");
      for (CRITICAL_SECTION* lock : {&state.stateLock, &Logger::logBase.lock}) {
        EXPECT_EQ(pthread_mutex_trylock(lock), 0);
        pthread_mutex_unlock(lock);
      }
    }
    EXPECT_EQ(Finish(), 0u) << "descriptors";
    return failed_;
  }

  uint32_t Make(const Call& call, Arguments& arguments) override {
    faults::Arm(call_, number_);
    status_ = SequencesTest::Make(call, arguments);
    failed_ |= faults::Disarm();
    return status_;
  }

  // When memory is exhausted, the call reports that, or records the beginning of its exception's
  // text.
  bool IsChecked() const override {
    if (call_ != "malloc" || !failed_ || status_ == 0) return true;
    const char* const texts[] = {"", state.apiErrorText, state.kaloErrorText, state.fenuErrorText};
    EXPECT_THAT(texts[state.lastErrorSource],
                testing::StartsWith(status_ == 1 ? "std::bad_alloc" : "KALO Exception"));
    auto* session = static_cast<ClientSession*>(state.lastErrorContext);
    if (state.lastErrorSource == KALO_ERROR_SOURCE_API3 && connected.count(session) != 0) {
      EXPECT_EQ(session->lastErrorStatus, status_ == 1 ? -1 : static_cast<int32_t>(status_));
    }
    return false;
  }

  std::string call_;
  uint32_t number_ = 0, status_ = 0;
  bool failed_ = false;
};

TEST_F(NthFailure, is_reported_or_ignored_and_later_calls_work) {
  std::set<std::string> entryPoints, calls;  // those that failed
  for (unsigned seed = 0; seed < 12; ++seed) {
    Sequence sequence = RandomSequence(std::mt19937(seed));
    for (Step& step : sequence) step.faults.clear();
    traced = seed % 2 == 1;
    for (size_t at = 0; at < sequence.size(); ++at) {
      for (const char* call : kFailing) {
        const long open = test::OpenDescriptors();
        for (uint32_t number = 1; Fail(sequence, at, call, number); ++number) {
          entryPoints.insert(sequence[at].call->name);
          calls.insert(call);
          ASSERT_FALSE(HasFailure())
              << call << " no. " << number << " in step " << at << " with seed " << seed;
        }
        EXPECT_EQ(test::OpenDescriptors(), open);
      }
    }
  }
  // The log file's writes may be missing, because libc++ makes them with another function.
  EXPECT_GE(calls.size(), std::size(kFailing) - 1);
  EXPECT_EQ(entryPoints.size(), std::size(kCalls));
}

TEST_F(NthFailure, of_memory_cuts_only_the_log_line_that_needs_it) {
  void* handle = nullptr;
  // Lines of up to 255 characters need no memory. Beyond the length 250, each allocation fails
  // once.
  bool failed = true;
  for (uint32_t length = 200; length <= 251 || failed; ++length) {
    const std::string text(length, 'x');
    connectFailure = text.c_str();
    faults::Arm("malloc", length > 250 ? length - 250 : UINT32_MAX);
    KaloInit3(&handle);
    failed = faults::Disarm();
    if (!failed) {
      EXPECT_THAT(TakeRaw().back(), testing::EndsWith(": KALO Exception 0x4d " + text));
    }
  }
}

}  // namespace
}  // namespace test
