// A lost device is recovered in read, write and ioctl alike: up to five times, and no further.

#include <cerrno>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using zulisim::Operation;

constexpr uint32_t kRequest = 0xC0104802;          // negative as an int
const std::string kOpened = "Connect: ZULI FD: ";  // the number apart

struct Kind {
  Operation operation;
  const char* function;
  const char* word;
  // Occurrences from one try to the next: a reconnect is an ioctl too.
  uint64_t stride;
};

const Kind kRead{Operation::kRead, "ReadFromZuli", "READ", 1};
const Kind kWrite{Operation::kWrite, "WriteToZuli", "WRITE", 1};
const Kind kIoctl{Operation::kIoctl, "SendIoctlToZuli", "IOCTL", 2};

class Recovery : public LibraryTest, public testing::WithParamInterface<const Kind*> {
 protected:
  Recovery() : session_(&ClientSession::KALO_CLIENT_GUID, nullptr) {
    engine.SetIoctl(kRequest, [](void*) { return 0; });
    sink->onLine = [] {
      Logger::logBase.level = 100;
      errno = 7777;  // no sink may disturb what the caller reads
    };
    sink->onLine();
    Ready();
  }

  // Connected, with a reply waiting.
  void Ready() {
    session_.Reconnect();
    Bytes request = Message(1);
    session_.WriteToZuli(request.data(), 32);
    TakeLog();
  }

  void FailTry(int number, int error) {
    engine.AddFault({kind.operation, Count(kind.operation) + 1 + (number - 1) * kind.stride, 1,
                     error == ENODEV ? zulisim::FaultEffect(zulisim::DeviceLoss{})
                                     : zulisim::ErrnoFault{error}});
  }

  // Loses the device at the first tries, fails the next with `error` unless that is 0, and expects
  // `outcome` of it all: what was thrown, or the byte count or -1, told as `after` behind the
  // recoveries that succeeded, and errno as `left`.
  void Expect(int losses, int error, int recovered, const Lines& after, int left,
              const std::string& outcome) {
    SCOPED_TRACE(testing::Message() << losses << " losses, then " << error);
    for (int i = 1; i <= losses; ++i) FailTry(i, ENODEV);
    if (error != 0) FailTry(losses + 1, error);
    errno = 0;
    int result = 0;
    const std::string thrown = Thrown([&] {
      unsigned char buffer[32] = {};
      if (&kind == &kRead) result = session_.ReadFromZuli(buffer, 32);
      if (&kind == &kWrite) result = session_.WriteToZuli(buffer, 32);
      if (&kind == &kIoctl) session_.SendIoctlToZuli(static_cast<int>(kRequest), buffer);
    });
    EXPECT_EQ(errno, left);
    EXPECT_EQ(thrown == "nothing" ? std::to_string(result) : thrown, outcome);
    Lines expected;
    for (int i = 1; i <= recovered; ++i) {
      expected = expected + Lost(i) + List("<close>", "<open>", kOpened, "<ioctl>");
    }
    Lines told = TakeTranscript();
    for (std::string& line : told) {
      if (line.rfind(kOpened, 0) == 0) line = kOpened;
    }
    EXPECT_EQ(told, expected + after);
    engine.ClearFaults();
    Ready();
  }

  std::string Call(const std::string& error = "") const {
    return "<" + std::string(OperationName(kind.operation)) + error + ">";
  }
  Lines Lost(int attempt) const {
    return Lines{Call(" ENODEV")} +
           Of(kind.function, std::string("ZULI device is lost in ") + kind.word +
                                 " call with errorno = 19. Trying to reconnect (attempt #" +
                                 std::to_string(attempt) + ").");
  }
  // The outcome of a failure: only the ioctl explains and throws it.
  std::string Failure() const {
    return &kind == &kIoctl ? RuntimeError("Error sending IOCTL to ZULI.") : "-1";
  }
  Lines Explained(const Lines& texts) const {
    return &kind == &kIoctl ? WithName(kind.function, texts) : Lines{};
  }

  const Kind& kind = *GetParam();
  CpDremSession session_;
};

TEST_P(Recovery, goes_up_to_five_times) {
  for (int losses = 0; losses <= 4; ++losses) {
    Expect(losses, 0, losses,
           Lines{Call()} + Of(kind.function, std::string(kind.word) + " call is successful."),
           losses == 0 ? 0 : ENODEV, &kind == &kIoctl ? "0" : "32");
  }
  Expect(5, 0, 5, Explained({"Error sending IOCTL to ZULI. errno = 19."}), ENODEV, Failure());
  // The fifth reconnect is made, and errno is as it left it.
  engine.AddFault({Operation::kClose, Count(Operation::kClose) + 5, 1, zulisim::ErrnoFault{EBADF}});
  Expect(5, 0, 4,
         Lost(5) +
             List("<close EBADF>",
                  "Disconnect: close() for ZUL device /dev/zuli failed with errno = 9.", "<open>",
                  kOpened, "<ioctl>") +
             Explained({"d is not a valid descriptor."}),
         EBADF, Failure());
}

TEST_P(Recovery, ends_with_the_reconnect_that_fails) {
  for (int attempt = 1; attempt <= 5; ++attempt) {
    engine.AddFault(
        {Operation::kOpen, Count(Operation::kOpen) + attempt, 1, zulisim::ErrnoFault{ENOENT}});
    Expect(attempt, 0, attempt - 1,
           Lost(attempt) + List("<close>", "<open ENOENT>",
                                "Connect: open() for ZUL device /dev/zuli failed with errno = 2."),
           ENOENT, RuntimeError("Cannot open ZULI device."));
    const uint64_t connect = Count(Operation::kIoctl) + attempt * kind.stride;
    engine.AddFault({Operation::kIoctl, connect, 1, zulisim::ErrnoFault{EINVAL}});
    Expect(
        attempt, 0, attempt - 1,
        Lost(attempt) + List("<close>", "<open>", kOpened, "<ioctl EINVAL>",
                             "Connect: ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = 22."),
        EINVAL, RuntimeError("Cannot connect to ZULI device."));
  }
}

TEST_P(Recovery, is_not_tried_for_any_other_error) {
  const struct {
    int error;
    Lines explanation;
  } kErrors[] = {
      {EBADF, {"d is not a valid descriptor."}},
      {EFAULT, {"argp references an inaccessible memory area."}},
      {EINVAL, {"Request or argp is not valid."}},
      {ENOTTY,
       {"d is not associated with a character special device.",
        "The specified request does not apply to the kind of object that the descriptor d "
        "references."}},
      {EINTR, {"Error sending IOCTL to ZULI. errno = 4."}},
      {ENXIO, {"Error sending IOCTL to ZULI. errno = 6."}},
  };
  for (const auto& [error, explanation] : kErrors) {
    // At the first try, and behind two recoveries.
    for (const int losses : {0, 2}) {
      Expect(losses, error, losses,
             Lines{Call(" " + zulisim::ErrnoName(error))} +
                 Of(kind.function,
                    std::string("ZULI device is lost in ") + kind.word +
                        " call and recovering failed with errorno = " + std::to_string(error)) +
                 Explained(explanation),
             error, Failure());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(of, Recovery, testing::Values(&kRead, &kWrite, &kIoctl),
                         [](const auto& kind) { return kind.param->word; });

}  // namespace
}  // namespace test
