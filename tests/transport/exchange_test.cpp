// One exchange: request, reply, private data; and the log of each way it can end.

#include <unistd.h>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"
#include "transport/zuli_device.h"

namespace test {
namespace {

using zulisim::Operation;

const Lines kWritten{"<write>", "WriteToZuli: WRITE call is successful.",
                     "IoMessage: Write to ZULI bytes = 32."};
const Lines kRead{"<read>", "ReadFromZuli: READ call is successful."};
const Lines kAnnounced{"IoMessage: Received a status with the TEV private Data but set."};
const Lines kNoInput{"IoMessage: Error in IOMessage input parameters"};
const Lines kEnded{"IoMessage: Everything went well!"};

zulisim::EngineOptions Clients() {
  zulisim::EngineOptions options;
  for (zulisim::Client& client : options.clients) {
    client.maxMessageLength = 0x1ab;
    client.protocolVersion = 'A';  // must print as a number
  }
  return options;
}

class Exchange : public LibraryTest {
 protected:
  Exchange() : LibraryTest(Clients()) {
    // Numbers that decimal and hexadecimal write differently.
    while (dup(STDERR_FILENO) < 20) {
    }
    session_.emplace(&ClientSession::KALO_CLIENT_GUID, nullptr);
    Trace();
    TakeLog();
  }

  void Answer(uint32_t status, const Bytes& data) {
    engine.SetResponder("KALO", [=](const zulisim::Bytes& request) {
      return zulisim::EchoReply(request, status, data);
    });
  }

  // Runs one exchange with the members below; `told` comes behind the line of the properties.
  void Expect(const Lines& told, const std::string& thrown = "nothing") {
    const std::string properties =
        "fd = " + Hex(static_cast<uint32_t>(session_->deviceFd)) + ", Version = 41, MaxLen = 1ab.";
    const Lines first = session_->connectRecord != nullptr ? Of("IoMessage", properties) : Lines{};
    EXPECT_EQ(Thrown([this] {
                session_->IoMessage(in_, static_cast<unsigned>(input_.size()), out_,
                                    static_cast<unsigned>(output_.size()), data_, length_);
              }),
              thrown);
    EXPECT_EQ(TakeTranscript(), first + told);
  }
  // Drops what is left unread.
  void Renew() {
    session_->Reconnect();
    TakeLog();
  }

  // Exact sizes: the sanitizers see every byte beyond.
  Bytes input_ = Message(0x10, 32, 2, 0xfedc1, 0xabc);
  Bytes output_ = Bytes(32), private_ = Bytes(16);
  unsigned int privateLength_ = 100;  // the size that the caller names plays no part
  unsigned char *in_ = input_.data(), *out_ = output_.data(), *data_ = private_.data();
  unsigned int* length_ = &privateLength_;
  std::optional<CpDremSession> session_;
};

TEST_F(Exchange, carries_request_and_reply_unchanged_and_takes_short_ones) {
  Expect(kWritten + kRead + kEnded);
  EXPECT_EQ(engine.Requests("KALO"), std::vector<Bytes>{input_});
  EXPECT_EQ(output_, Message(0x10, 32, 0, 0xfedc1, 0xabc));
  output_.assign(32, 0);
  engine.SetResponder("KALO", [](const auto&) { return zulisim::Reply{Bytes(4, 'r'), {}}; });
  Expect(kWritten + kRead + kEnded);
  Bytes expected(4, 'r');
  expected.resize(32);
  EXPECT_EQ(output_, expected);
  engine.ShortenNext(Operation::kWrite, 20);
  EXPECT_EQ(session_->WriteToZuli(in_, 32), 20);
  EXPECT_EQ(session_->ReadFromZuli(out_, 18), 4);
  EXPECT_EQ(session_->WriteToZuli(in_, 0), 0);
  EXPECT_THAT(TakeLog(), testing::ElementsAre(kWritten[1], kRead[1], kWritten[1]));
}

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
    SCOPED_TRACE(status);
    Answer(status, Bytes(size, 'p'));
    private_.assign(16, 0);
    privateLength_ = 100;
    Expect(kWritten + kRead +
           (read == nullptr ? Lines{} : kAnnounced + kRead + Of("IoMessage", read)) + kEnded);
    const size_t length = read == nullptr ? 0 : std::min<size_t>(size, 16);
    EXPECT_EQ(privateLength_, read == nullptr ? 100 : length);
    Bytes expected(length, 'p');
    expected.resize(16);
    EXPECT_EQ(private_, expected);
    EXPECT_EQ(engine.Records().back().length, read == nullptr ? 32u : 16u);
    Renew();
  }
}

TEST_F(Exchange, ends_early_and_well_without_buffers_or_descriptor) {
  in_ = nullptr;
  Expect(kNoInput + kEnded);
  in_ = input_.data();
  out_ = nullptr;
  Expect(kWritten + Of("IoMessage", "Error in IOMessage output parameters") + kEnded);
  out_ = output_.data();
  Answer(0x80000001, Bytes(16));
  for (const bool withBuffer : {false, true}) {
    Renew();
    data_ = withBuffer ? private_.data() : nullptr;
    length_ = withBuffer ? nullptr : &privateLength_;
    Expect(kWritten + kRead + kAnnounced + Of("IoMessage", "Error in TEV input private data.") +
           kEnded);
  }
  EXPECT_EQ(privateLength_, 100u);
  session_->Disconnect();
  session_->deviceFd = -1;
  TakeLog();
  Expect(kNoInput + kEnded);
  delete session_->connectRecord;
  session_->connectRecord = nullptr;
  Expect(kNoInput + kEnded);
}

TEST_F(Exchange, dumps_the_message_when_a_transfer_fails) {
  const auto given = [](const char* call, const char* function, const char* word, int error) {
    return List("<" + std::string(call) + " " + zulisim::ErrnoName(error) + ">") +
           Of(function, std::string("ZULI device is lost in ") + word +
                            " call and recovering failed with errorno = " + std::to_string(error));
  };
  engine.FailNext(Operation::kWrite, EIO);
  Expect(given("write", "WriteToZuli", "WRITE", EIO) +
             Of("IoMessage", "Error writing message to ZULI. errno = 5.", "ZULI Input Msg fedc1",
                "| 10", "| 2", "| abc\n"),
         RuntimeError("Error writing message to ZULI."));
  // What the buffer holds, whatever it is.
  output_ = Message(0xffffffff, 32, 0x80000001, 0x1234abcd, 0);
  out_ = output_.data();
  engine.FailNext(Operation::kRead, EINTR);
  Expect(kWritten + given("read", "ReadFromZuli", "READ", EINTR) +
             Of("IoMessage", "Error reading message from ZULI. errno = 4.",
                "ZULI Output Msg 1234abcd", "| ffffffff", "| 80000001", "| 0\n"),
         RuntimeError("Error reading message from ZULI."));
  Renew();
  // The text that is thrown has no full stop; the line has one.
  Answer(0x80000001, Bytes(16));
  engine.AddFault({Operation::kRead, Count(Operation::kRead) + 2, 1, zulisim::ErrnoFault{EIO}});
  Expect(kWritten + kRead + kAnnounced + given("read", "ReadFromZuli", "READ", EIO) +
             Of("IoMessage", "Error reading TEV private data.", "ZULI Output Msg fedc1", "| 10",
                "| 80000001", "| abc\n"),
         RuntimeError("Error reading TEV private data"));
  EXPECT_EQ(privateLength_, 100u);
  // Sizes are left to the device.
  input_ = Message(0x10, 0x1ac);
  EXPECT_EQ(
      Thrown([this] { session_->IoMessage(input_.data(), 0x1ac, out_, 32, nullptr, nullptr); }),
      RuntimeError("Error writing message to ZULI."));
  EXPECT_THAT(TakeLog(),
              testing::Contains("IoMessage: Error writing message to ZULI. errno = 90."));
  // errno is as the last reconnect left it.
  engine.LoseDeviceAtNext(Operation::kWrite, 5);
  engine.AddFault({Operation::kClose, Count(Operation::kClose) + 5, 1, zulisim::ErrnoFault{EBADF}});
  EXPECT_EQ(Thrown([this] { session_->IoMessage(out_, 32, out_, 32, nullptr, nullptr); }),
            RuntimeError("Error writing message to ZULI."));
  EXPECT_THAT(TakeLog(), testing::Contains("IoMessage: Error writing message to ZULI. errno = 9."));
}

}  // namespace
}  // namespace test
