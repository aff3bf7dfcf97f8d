// Tests what the random sequences cannot: the transferred bytes, arguments that no entry point
// passes on, and ioctls passed through.

#include "tests/support/library_test.h"
#include "transport/cp_drem_session.h"
#include "transport/zuli_device.h"

namespace test {
namespace {

using zulisim::Operation;

class Exchange : public LibraryTest {
 protected:
  Exchange() {
    KaloInit();
    session_ = state.kaloSessionA->dremSessions[0];
  }

  // The sizes are exact, so the sanitizers detect any access beyond them.
  Bytes input_ = Message(0x10, 32, 2, 0xfedc1, 0xabc), output_ = Bytes(32);
  unsigned char *in_ = input_.data(), *out_ = output_.data();
  CpDremSession* session_;
};

TEST_F(Exchange, carries_the_bytes_and_private_data_after_a_negative_status) {
  const std::tuple<uint32_t, size_t, size_t> kCases[] = {
      {0, 16, 0},           {1, 16, 0},           {0x7fffffff, 16, 0},
      {0x80000000, 16, 16}, {0xffffffff, 11, 11}, {0x80000001, 40, 16}};
  for (const auto& [status, size, read] : kCases) {
    SCOPED_TRACE(status);
    Answer(status, Bytes(size, 'p'));
    session_->Reconnect();  // drops unread replies
    Bytes privateData(16);
    unsigned int length = 100;  // the library ignores the size that the caller passes
    EXPECT_EQ(StartIoEx(in_, 32, out_, 31, privateData.data(), &length), 0u);
    Bytes echo = Message(0x10, 32, status, 0xfedc1, 0xabc), data(read, 'p');
    echo.back() = 0;
    data.resize(16);
    EXPECT_EQ(output_, echo);
    EXPECT_EQ(engine.Requests("KALO").back(), input_);
    EXPECT_EQ(privateData, data);
    EXPECT_EQ(length, read == 0 ? 100 : read);
  }
  engine.AddFault({Operation::kRead, zulisim::ErrnoFault{EIO}, {2, 1}});
  unsigned int length = 100;
  EXPECT_EQ(StartIoEx(in_, 32, out_, 32, Bytes(16).data(), &length), 1u);
  EXPECT_EQ(length, 100u) << "the read of private data failed";
  input_.insert(input_.begin(), 0);
  EXPECT_EQ(StartIo(input_.data() + 1, 32, input_.data() + 1, 32), 0u) << "at an odd address";
}

TEST_F(Exchange, is_one_call_each_on_a_plain_descriptor) {
  const auto records = engine.Records();
  EXPECT_EQ(records[0].openFlags, O_RDWR);
  EXPECT_EQ(records[0].openMode, 0x101000u);
  EXPECT_EQ(records[1].request, 0xC0104801u);
  engine.SetResponder("KALO", [](const auto&) { return zulisim::Reply{Bytes(4, 'r'), {}}; });
  engine.AddFault({Operation::kWrite, zulisim::ShortCount{20}});
  EXPECT_EQ(session_->WriteToZuli(in_, 32), 20);
  EXPECT_EQ(session_->ReadFromZuli(out_, 18), 4);
  constexpr uint32_t kRequest = 0xC0104802;  // this request number is negative as an int
  engine.SetIoctl(kRequest,
                  [](void* argument) { return ++*static_cast<int*>(argument) == 2 ? EPERM : 0; });
  int argument[4] = {};  // the size that the request encodes
  session_->SendIoctlToZuli(static_cast<int>(kRequest), argument);
  EXPECT_EQ(engine.Records().back().output[0], 1);
  EXPECT_ANY_THROW(session_->SendIoctlToZuli(static_cast<int>(kRequest), argument));
  EXPECT_EQ(errno, EPERM);
  // Callers can rely on errno, including zero, whatever the sinks do.
  Logger::logBase.level = 100;
  sink->onLine = [] { errno = 7777; };
  errno = 0;
  EXPECT_EQ(session_->WriteToZuli(in_, 0), 0);
  EXPECT_EQ(errno, 0);
  const int descriptor = session_->deviceFd;
  session_->Disconnect();
  EXPECT_EQ(session_->deviceFd, descriptor) << "the session keeps the number of a closed one";
  alignas(CpDremSession) unsigned char memory[sizeof(CpDremSession)];
  (new (memory) CpDremSession(&ClientSession::KALO_CLIENT_GUID, nullptr))->~CpDremSession();
  EXPECT_EQ(std::count(memory + 16, memory + 24, 0), 8) << "it has no connect record any more";
}

TEST_F(Exchange, leaves_the_errno_of_its_last_reconnect_and_a_record_of_the_error) {
  engine.AddFault({Operation::kRead, zulisim::DeviceLoss{}, {1, 5}});
  engine.AddFault({Operation::kClose, zulisim::ErrnoFault{EXDEV}, {5, 1}});
  errno = 0;
  EXPECT_EQ(session_->ReadFromZuli(out_, 32), -1);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(engine.Count(Operation::kClose), 5u);
  delete std::exchange(session_->connectRecord, nullptr);  // only the log uses it
  engine.AddFault({Operation::kWrite, zulisim::ErrnoFault{EIO}});
  ClientSession* const session = state.kaloSessionA;
  EXPECT_EQ(StartIoEx3(session, in_, 32, out_, 32, nullptr, nullptr), 1u);
  const std::string text = "Error writing message to ZULI.";
  EXPECT_EQ(state.apiErrorText, text);
  EXPECT_EQ(std::string(session->lastErrorText, text.size()), text);
}

}  // namespace
}  // namespace test
