// One exchange: request, reply, private data; and the log of each way it can end.

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <sstream>

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"
#include "transport/zuli_device.h"

namespace test {
namespace {

using zulisim::Operation;

constexpr uint32_t kNegative = 0x80000001;
const Bytes kPrivateData{'p', 'r', 'i', 'v', 'a', 't', 'e', ' ',
                         'd', 'a', 't', 'a', ' ', '1', '6', '!'};

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
    session_ = std::make_unique<CpDremSession>(&ClientSession::KALO_CLIENT_GUID, nullptr);
    Trace();
    TakeLog();
  }

  void AnswerWithPrivateData(const Bytes& data, uint32_t status = kNegative) {
    engine.SetResponder("KALO", [data, status](const zulisim::Bytes& request) {
      return zulisim::EchoReply(request, status, data);
    });
  }

  void Run(unsigned char* input, unsigned char* output, unsigned char* privateData,
           unsigned int* privateLength) {
    session_->IoMessage(input, static_cast<unsigned>(input_.size()), output,
                        static_cast<unsigned>(output_.size()), privateData, privateLength);
  }
  void Run() { Run(input_.data(), output_.data(), private_.data(), &privateLength_); }

  Lines Properties() const {
    std::ostringstream text;
    text << "fd = " << std::hex << session_->deviceFd << ", Version = 41, MaxLen = 1ab.";
    return Of("IoMessage", text.str());
  }
  static Lines Written() {
    return {"<write>", "WriteToZuli: WRITE call is successful.",
            "IoMessage: Write to ZULI bytes = 32."};
  }
  static Lines Read() { return {"<read>", "ReadFromZuli: READ call is successful."}; }
  static Lines Ended() { return {"IoMessage: Everything went well!"}; }

  // Exact sizes: the sanitizers see every byte beyond.
  Bytes input_ = Message(0x10, 32, 2, 0xfedc1, 0xabc);
  Bytes output_ = Bytes(32);
  Bytes private_ = Bytes(16);
  unsigned int privateLength_ = 77;
  std::unique_ptr<CpDremSession> session_;
};

TEST_F(Exchange, carries_request_and_reply_unchanged) {
  Run();
  EXPECT_EQ(TakeTranscript(), Properties() + Written() + Read() + Ended());
  EXPECT_EQ(engine.Requests("KALO"), std::vector<Bytes>{input_});
  EXPECT_EQ(output_, Message(0x10, 32, 0, 0xfedc1, 0xabc));
  EXPECT_EQ(privateLength_, 77u);
}

TEST_F(Exchange, reads_private_data_behind_a_negative_status_only) {
  const struct {
    uint32_t status;
    Bytes data;
    const char* read;  // null when none is read
  } kCases[] = {
      {0, kPrivateData, nullptr},
      {1, kPrivateData, nullptr},
      {0x7fffffff, kPrivateData, nullptr},
      {0x80000000, kPrivateData, "Read 10 bytes of TEV private Data."},
      {0xffffffff, Bytes(11, 'x'), "Read b bytes of TEV private Data."},
      {kNegative, Bytes(40, 'y'), "Read 10 bytes of TEV private Data."},
  };
  for (const auto& [status, data, read] : kCases) {
    SCOPED_TRACE(status);
    AnswerWithPrivateData(data, status);
    private_.assign(16, 0);
    privateLength_ = 100;  // the size that the caller names plays no part
    Run();
    Lines expected = Properties() + Written() + Read();
    if (read != nullptr) {
      expected = expected +
                 Of("IoMessage", "Received a status with the TEV private Data but set.") + Read() +
                 Of("IoMessage", read);
      const size_t length = std::min<size_t>(data.size(), 16);
      EXPECT_EQ(privateLength_, length);
      EXPECT_EQ(Bytes(private_.begin(), private_.begin() + length),
                Bytes(data.begin(), data.begin() + length));
      EXPECT_EQ(engine.Records().back().length, 16u);
    } else {
      EXPECT_EQ(privateLength_, 100u);
    }
    EXPECT_EQ(TakeTranscript(), expected + Ended());
    session_->Reconnect();  // drops what is left unread
    TakeLog();
  }
}

TEST_F(Exchange, leaves_private_data_unread_without_room_for_it) {
  AnswerWithPrivateData(kPrivateData);
  for (const bool withBuffer : {false, true}) {
    Run(input_.data(), output_.data(), withBuffer ? private_.data() : nullptr,
        withBuffer ? nullptr : &privateLength_);
    EXPECT_EQ(TakeTranscript(),
              Properties() + Written() + Read() +
                  Of("IoMessage", "Received a status with the TEV private Data but set.",
                     "Error in TEV input private data.") +
                  Ended());
    EXPECT_EQ(privateLength_, 77u);
    session_->Reconnect();
    TakeLog();
  }
}

TEST_F(Exchange, without_buffers_or_descriptor_ends_early_and_well) {
  const Lines noInput = Of("IoMessage", "Error in IOMessage input parameters");
  const Lines noOutput = Of("IoMessage", "Error in IOMessage output parameters");
  Run(nullptr, output_.data(), nullptr, nullptr);
  EXPECT_EQ(TakeTranscript(), Properties() + noInput + Ended());
  Run(input_.data(), nullptr, nullptr, nullptr);
  EXPECT_EQ(TakeTranscript(), Properties() + Written() + noOutput + Ended());
  session_->Disconnect();
  session_->deviceFd = -1;
  TakeLog();
  Run();
  EXPECT_EQ(TakeTranscript(),
            Of("IoMessage", "fd = ffffffff, Version = 41, MaxLen = 1ab.") + noInput + Ended());
  delete session_->connectRecord;
  session_->connectRecord = nullptr;
  Run();
  EXPECT_EQ(TakeTranscript(), noInput + Ended());
}

TEST_F(Exchange, that_cannot_write_dumps_the_request) {
  engine.FailNext(Operation::kWrite, EIO);
  EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error writing message to ZULI."));
  EXPECT_EQ(TakeTranscript(),
            Properties() +
                List("<write EIO>",
                     "WriteToZuli: ZULI device is lost in WRITE call and recovering failed with "
                     "errorno = 5") +
                Of("IoMessage", "Error writing message to ZULI. errno = 5.", "ZULI Input Msg fedc1",
                   "| 10", "| 2", "| abc\n"));
}

TEST_F(Exchange, leaves_sizes_to_the_device) {
  input_ = Message(0x10, 0x1ac);
  EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error writing message to ZULI."));
  EXPECT_THAT(TakeLog(),
              testing::Contains("IoMessage: Error writing message to ZULI. errno = 90."));
}

TEST_F(Exchange, that_cannot_read_dumps_what_the_reply_buffer_holds) {
  output_ = Message(0xffffffff, 16, kNegative, 0x1234abcd, 0);
  engine.FailNext(Operation::kRead, EINTR);
  EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error reading message from ZULI."));
  EXPECT_EQ(TakeTranscript(),
            Properties() + Written() +
                List("<read EINTR>",
                     "ReadFromZuli: ZULI device is lost in READ call and recovering failed with "
                     "errorno = 4") +
                Of("IoMessage", "Error reading message from ZULI. errno = 4.",
                   "ZULI Output Msg 1234abcd", "| ffffffff", "| 80000001", "| 0\n"));
}

TEST_F(Exchange, that_cannot_read_private_data_dumps_the_reply) {
  AnswerWithPrivateData(kPrivateData);
  engine.AddFault({Operation::kRead, 2, 1, zulisim::ErrnoFault{EIO}});
  // The text that is thrown has no full stop; the line has one.
  EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error reading TEV private data"));
  EXPECT_EQ(TakeTranscript(),
            Properties() + Written() + Read() +
                Of("IoMessage", "Received a status with the TEV private Data but set.") +
                List("<read EIO>",
                     "ReadFromZuli: ZULI device is lost in READ call and recovering failed with "
                     "errorno = 5") +
                Of("IoMessage", "Error reading TEV private data.", "ZULI Output Msg fedc1", "| 10",
                   "| 80000001", "| abc\n"));
  EXPECT_EQ(privateLength_, 77u);
}

TEST_F(Exchange, reports_errno_as_the_last_reconnect_left_it) {
  engine.LoseDeviceAtNext(Operation::kWrite, 5);
  engine.AddFault({Operation::kClose, 5, 1, zulisim::ErrnoFault{EBADF}});
  EXPECT_EQ(Thrown([this] { Run(); }), RuntimeError("Error writing message to ZULI."));
  EXPECT_THAT(TakeLog(), testing::Contains("IoMessage: Error writing message to ZULI. errno = 9."));
}

TEST_F(Exchange, takes_a_short_reply_as_it_is) {
  engine.SetResponder("KALO", [](const zulisim::Bytes&) {
    return zulisim::Reply{Bytes(4, 'r'), {}};
  });
  Run();
  EXPECT_EQ(TakeTranscript(), Properties() + Written() + Read() + Ended());
  Bytes expected(32);
  std::fill_n(expected.begin(), 4, 'r');
  EXPECT_EQ(output_, expected);
}

}  // namespace
}  // namespace test
