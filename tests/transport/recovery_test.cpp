// A lost device is recovered in read, write and ioctl alike: up to five times, and no further.

#include <cerrno>
#include <optional>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using zulisim::Operation;

constexpr unsigned int kRequest = 0xC0104802;

struct Kind {
  Operation operation;
  const char* function;
  const char* word;
  // Occurrences from one try to the next: a reconnect is an ioctl too.
  uint64_t stride;
};

void PrintTo(const Kind* kind, std::ostream* out) { *out << kind->word; }

const Kind kRead{Operation::kRead, "ReadFromZuli", "READ", 1};
const Kind kWrite{Operation::kWrite, "WriteToZuli", "WRITE", 1};
const Kind kIoctl{Operation::kIoctl, "SendIoctlToZuli", "IOCTL", 2};

class Recovery : public LibraryTest, public testing::WithParamInterface<const Kind*> {
 protected:
  Recovery() : session_(&ClientSession::KALO_CLIENT_GUID, nullptr) {
    engine.SetIoctl(kRequest, [](void*) { return 0; });
    Bytes request = Message(1);
    session_.WriteToZuli(request.data(), 32);  // so that a reply is waiting
    Trace();
    sink->onLine = [] {
      Logger::logBase.level = 100;
      errno = 7777;  // no sink may disturb what the caller reads
    };
    TakeLog();
  }

  const Kind& kind() const { return *GetParam(); }

  void LoseDeviceAtEachTry(int tries, const zulisim::FaultEffect& effect = zulisim::DeviceLoss{}) {
    for (int i = 0; i < tries; ++i) {
      engine.AddFault(
          {kind().operation, Count(kind().operation) + 1 + i * kind().stride, 1, effect});
    }
  }

  // The byte count or -1 of a transfer; 0 or nothing, when it threw, of an ioctl.
  std::optional<int> Run() {
    unsigned char buffer[32] = {};
    if (kind().operation == Operation::kRead) return session_.ReadFromZuli(buffer, 32);
    if (kind().operation == Operation::kWrite) return session_.WriteToZuli(buffer, 32);
    session_.SendIoctlToZuli(static_cast<int>(kRequest), buffer);
    return 0;
  }

  // Runs into the failure that ends all tries.
  void RunToFailure() {
    if (kind().operation == Operation::kIoctl) {
      EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error sending IOCTL to ZULI."));
    } else {
      EXPECT_EQ(Run(), -1);
    }
  }

  std::string Call(const char* error = "") const {
    return std::string("<") + OperationName(kind().operation) + error + ">";
  }
  Lines Say(const std::string& text) const { return Of(kind().function, text); }
  Lines Lost(int attempt) const {
    return Lines{Call(" ENODEV")} + Say(std::string("ZULI device is lost in ") + kind().word +
                                        " call with errorno = 19. Trying to reconnect (attempt #" +
                                        std::to_string(attempt) + ").");
  }
  Lines GivenUp(int error) const {
    return Lines{Call((" " + zulisim::ErrnoName(error)).c_str())} +
           Say(std::string("ZULI device is lost in ") + kind().word +
               " call and recovering failed with errorno = " + std::to_string(error));
  }
  Lines Explained(const Lines& texts) const {
    return kind().operation == Operation::kIoctl ? WithName(kind().function, texts) : Lines{};
  }
  Lines Reconnected() const {
    return {"<close>", "<open>", "Connect: ZULI FD: " + std::to_string(session_.deviceFd),
            "<ioctl>"};
  }
  Lines Recovered(int attempts) const {
    Lines lines;
    for (int i = 1; i <= attempts; ++i) lines = lines + Lost(i) + Reconnected();
    return lines;
  }

  CpDremSession session_;
};

TEST_P(Recovery, succeeds_after_one_to_four_losses) {
  for (int losses = 0; losses <= 4; ++losses) {
    SCOPED_TRACE(losses);
    LoseDeviceAtEachTry(losses);
    errno = 0;
    EXPECT_EQ(Run(), kind().operation == Operation::kIoctl ? 0 : 32);
    EXPECT_EQ(errno, losses == 0 ? 0 : ENODEV);
    EXPECT_EQ(TakeTranscript(), Recovered(losses) + Lines{Call()} +
                                    Say(std::string(kind().word) + " call is successful."));
    Bytes request = Message(1);
    session_.WriteToZuli(request.data(), 32);
    TakeLog();
  }
}

TEST_P(Recovery, gives_up_after_the_fifth_loss_although_it_reconnected) {
  LoseDeviceAtEachTry(5);
  RunToFailure();
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(TakeTranscript(),
            Recovered(5) + Explained({"Error sending IOCTL to ZULI. errno = 19."}));
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
}

TEST_P(Recovery, leaves_errno_as_the_fifth_reconnect_left_it) {
  LoseDeviceAtEachTry(5);
  engine.AddFault({Operation::kClose, 5, 1, zulisim::ErrnoFault{EBADF}});
  RunToFailure();
  EXPECT_EQ(errno, EBADF);
  const std::string fd = std::to_string(session_.deviceFd);
  EXPECT_EQ(TakeTranscript(),
            Recovered(4) + Lost(5) +
                List("<close EBADF>",
                     "Disconnect: close() for ZUL device /dev/zuli failed with errno = 9.",
                     "<open>", "Connect: ZULI FD: " + fd, "<ioctl>") +
                Explained({"d is not a valid descriptor."}));
}

TEST_P(Recovery, ends_with_the_reconnect_that_fails) {
  for (int attempt = 1; attempt <= 5; ++attempt) {
    SCOPED_TRACE(attempt);
    LoseDeviceAtEachTry(attempt);
    engine.AddFault(
        {Operation::kOpen, Count(Operation::kOpen) + attempt, 1, zulisim::ErrnoFault{ENOENT}});
    EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Cannot open ZULI device."));
    const Lines log = TakeTranscript();
    session_.Connect();
    EXPECT_EQ(log, Recovered(attempt - 1) + Lost(attempt) +
                       List("<close>", "<open ENOENT>",
                            "Connect: open() for ZUL device /dev/zuli failed with errno = 2."));
    TakeLog();

    LoseDeviceAtEachTry(attempt);
    engine.AddFault({Operation::kIoctl, Count(Operation::kIoctl) + attempt * kind().stride, 1,
                     zulisim::ErrnoFault{EINVAL}});
    EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Cannot connect to ZULI device."));
    EXPECT_EQ(TakeTranscript(),
              Recovered(attempt - 1) + Lost(attempt) +
                  List("<close>", "<open>",
                       "Connect: ZULI FD: " + std::to_string(session_.deviceFd), "<ioctl EINVAL>",
                       "Connect: ioctl(IOCTL_ZULI_CONNECT_CLIENT) failed with errno = 22."));
    session_.Reconnect();
    TakeLog();
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
      {EAGAIN, {"Error sending IOCTL to ZULI. errno = 11."}},
      {ENXIO, {"Error sending IOCTL to ZULI. errno = 6."}},
  };
  for (const auto& [error, explanation] : kErrors) {
    // At the first try, and behind two recoveries.
    for (const int losses : {0, 2}) {
      SCOPED_TRACE(error);
      LoseDeviceAtEachTry(losses);
      engine.AddFault({kind().operation, Count(kind().operation) + 1 + losses * kind().stride, 1,
                       zulisim::ErrnoFault{error}});
      RunToFailure();
      EXPECT_EQ(errno, error);
      EXPECT_EQ(TakeTranscript(), Recovered(losses) + GivenUp(error) + Explained(explanation));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(of, Recovery, testing::Values(&kRead, &kWrite, &kIoctl),
                         [](const auto& kind) { return kind.param->word; });

class Transfer : public LibraryTest {};

TEST_F(Transfer, of_fewer_bytes_or_none_is_a_success) {
  CpDremSession session(&ClientSession::KALO_CLIENT_GUID, nullptr);
  Trace();
  Bytes message = Message(1);
  engine.ShortenNext(Operation::kWrite, 20);
  EXPECT_EQ(session.WriteToZuli(message.data(), 32), 20);
  EXPECT_EQ(session.ReadFromZuli(message.data(), 18), 18);
  EXPECT_EQ(session.WriteToZuli(message.data(), 0), 0);
  EXPECT_EQ(TakeTranscript(),
            (List("<open>", "<ioctl>", "<write>", "WriteToZuli: WRITE call is successful.",
                  "<read>", "ReadFromZuli: READ call is successful.", "<write>",
                  "WriteToZuli: WRITE call is successful.")));
}

}  // namespace
}  // namespace test
