// What the model of the entry points leaves out of an exchange: private data, the bytes that
// travel, and arguments that no entry point hands on.

#include <fcntl.h>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"
#include "transport/zuli_device.h"

namespace test {
namespace {

using zulisim::Operation;

const std::string kAnnounced = "Received a status with the TEV private Data but set.";
const std::string kEnded = "Everything went well!";

class Exchange : public LibraryTest {
 protected:
  Exchange() {
    KaloInit();
    session_ = state.kaloSessionA->dremSessions[0];
    Trace();
  }

  void Answer(uint32_t status, const Bytes& data) {
    engine.SetResponder("KALO", [=](const zulisim::Bytes& request) {
      return zulisim::EchoReply(request, status, data);
    });
    session_->Reconnect();  // drops what was left unread
    TakeLog();
  }

  // What the exchange itself told, without the properties of the client.
  Lines TakeTold() {
    Lines told;
    for (const std::string& line : TakeLog()) {
      if (line.rfind("IoMessage: ", 0) == 0) told.push_back(line.substr(11));
    }
    if (session_->connectRecord != nullptr) told.erase(told.begin());
    return told;
  }

  // Exact sizes: the sanitizers see every byte beyond.
  Bytes input_ = Message(0x10, 32, 2, 0xfedc1, 0xabc), output_ = Bytes(32), private_ = Bytes(16);
  CpDremSession* session_;
};

TEST_F(Exchange, reads_private_data_behind_a_negative_status_only) {
  const struct {
    uint32_t status;
    size_t size;
    const char* read;  // null when none is read
  } kCases[] = {{0, 16, nullptr},
                {1, 16, nullptr},
                {0x7fffffff, 16, nullptr},
                {0x80000000, 16, "Read 10 bytes of TEV private Data."},
                {0xffffffff, 11, "Read b bytes of TEV private Data."},
                {0x80000001, 40, "Read 10 bytes of TEV private Data."}};
  for (const auto& [status, size, read] : kCases) {
    for (const bool earlier : {false, true}) {
      SCOPED_TRACE(status);
      Answer(status, Bytes(size, 'p'));
      private_.assign(16, 0);
      unsigned int length = 100;  // the size that the caller names plays no part
      EXPECT_EQ(earlier ? StartIoEx(input_.data(), 32, output_.data(), 31, private_.data(), &length)
                        : StartIoEx3(state.kaloSessionA, input_.data(), 32, output_.data(), 31,
                                     private_.data(), &length),
                0u);
      Bytes echo = Message(0x10, 32, status, 0xfedc1, 0xabc),
            data(read ? std::min<size_t>(size, 16) : 0, 'p');
      echo.back() = 0;
      EXPECT_EQ(output_, echo);
      EXPECT_EQ(engine.Requests("KALO").back(), input_);
      EXPECT_EQ(length, read == nullptr ? 100 : data.size());
      data.resize(16);
      EXPECT_EQ(private_, data);
      EXPECT_EQ(TakeTold(), List("Write to ZULI bytes = 32.") +
                                (read ? List(kAnnounced, read) : Lines{}) + List(kEnded));
    }
  }
}

TEST_F(Exchange, tells_of_private_data_that_cannot_be_read) {
  Answer(0x80000001, Bytes(16));
  engine.AddFault({Operation::kRead, Count(Operation::kRead) + 2, 1, zulisim::ErrnoFault{EIO}});
  unsigned int length = 100;
  // The text that is thrown has no full stop; the line has one.
  EXPECT_EQ(Thrown([&] {
              session_->IoMessage(input_.data(), 32, output_.data(), 32, private_.data(), &length);
            }),
            RuntimeError("Error reading TEV private data"));
  EXPECT_EQ(TakeTold(),
            List("Write to ZULI bytes = 32.", kAnnounced, "Error reading TEV private data.",
                 "ZULI Output Msg fedc1", "| 10", "| 80000001", "| abc\n"));
  EXPECT_EQ(length, 100u);
}

TEST_F(Exchange, ends_early_and_well_without_buffers) {
  unsigned char *in = input_.data(), *out = output_.data(), *data = private_.data();
  unsigned int length = 100;
  const auto expect = [&](unsigned char* request, unsigned char* reply, unsigned char* block,
                          unsigned int* blockLength, const Lines& told) {
    Answer(0x80000001, Bytes(16));
    session_->IoMessage(request, 32, reply, 32, block, blockLength);
    EXPECT_EQ(TakeTold(), told + List(kEnded));
  };
  const Lines written{"Write to ZULI bytes = 32."};
  const Lines unread = written + List(kAnnounced, "Error in TEV input private data.");
  expect(nullptr, out, data, &length, {"Error in IOMessage input parameters"});
  expect(in, nullptr, data, &length, written + List("Error in IOMessage output parameters"));
  expect(in, out, nullptr, &length, unread);
  expect(in, out, data, nullptr, unread);
  EXPECT_EQ(length, 100u);
  delete std::exchange(session_->connectRecord, nullptr);
  session_->IoMessage(nullptr, 32, nullptr, 32, nullptr, nullptr);
  EXPECT_EQ(TakeTold(), List("Error in IOMessage input parameters", kEnded));
}

TEST_F(Exchange, is_one_call_each_on_a_plain_descriptor) {
  const auto records = engine.Records();
  EXPECT_EQ(records[0].openFlags, O_RDWR);
  EXPECT_EQ(records[0].openMode, 0x101000u);
  EXPECT_EQ(records[1].request, 0xC0104801u);
  engine.SetResponder("KALO", [](const auto&) { return zulisim::Reply{Bytes(4, 'r'), {}}; });
  engine.ShortenNext(Operation::kWrite, 20);
  EXPECT_EQ(session_->WriteToZuli(input_.data(), 32), 20);
  EXPECT_EQ(session_->ReadFromZuli(output_.data(), 18), 4);
  EXPECT_EQ(session_->WriteToZuli(input_.data(), 0), 0);
}

// Recovers as a transfer does; here a reconnect is of the same kind as the call.
TEST_F(Exchange, passes_ioctls_through_and_explains_what_fails) {
  constexpr uint32_t kRequest = 0xC0104802;  // negative as an int
  engine.SetIoctl(kRequest, [](void* argument) { return ++*static_cast<int*>(argument), 0; });
  int argument = 0;
  const auto send = [&] { session_->SendIoctlToZuli(static_cast<int>(kRequest), &argument); };
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
  };
  for (const auto& [error, explanation] : kErrors) {
    engine.FailNext(Operation::kIoctl, error);
    TakeLog();
    EXPECT_EQ(Thrown(send), RuntimeError("Error sending IOCTL to ZULI."));
    const Lines told{"ZULI device is lost in IOCTL call and recovering failed with errorno = " +
                     std::to_string(error)};
    EXPECT_EQ(TakeLog(), WithName("SendIoctlToZuli", told + explanation));
  }
  const struct {
    uint64_t losses;
    int atFifthClose;  // errno is as the last reconnect left it
    const char* told;
  } kLosses[] = {{4, 0, "IOCTL call is successful."},
                 {5, 0, "Error sending IOCTL to ZULI. errno = 19."},
                 {5, EBADF, "d is not a valid descriptor."}};
  for (const auto& [losses, atFifthClose, told] : kLosses) {
    engine.ClearFaults();
    for (uint64_t i = 0; i < losses; ++i) {
      const uint64_t first = Count(Operation::kIoctl) + 1 + 2 * i;
      engine.AddFault({Operation::kIoctl, first, 1, zulisim::DeviceLoss{}});
    }
    const uint64_t fifth = Count(Operation::kClose) + 5;
    if (atFifthClose) engine.AddFault({Operation::kClose, fifth, 1, zulisim::ErrnoFault{EBADF}});
    EXPECT_EQ(Thrown(send), losses == 4 ? "nothing" : RuntimeError("Error sending IOCTL to ZULI."));
    EXPECT_EQ(TakeLog().back(), "SendIoctlToZuli: " + std::string(told));
  }
  EXPECT_EQ(argument, 1);
}

}  // namespace
}  // namespace test
