// What the model of the entry points leaves out of an exchange: private data, the bytes that
// travel, arguments that no entry point hands on, and ioctls passed through.

#include <fcntl.h>

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
    Trace();
  }

  void Answer(uint32_t status, size_t size) {
    engine.SetResponder("KALO", [=](const zulisim::Bytes& request) {
      return zulisim::EchoReply(request, status, Bytes(size, 'p'));
    });
    session_->Reconnect();  // drops what was left unread
    TakeLog();
    private_.assign(16, 0);
  }

  // What a function told, line by line; an exchange apart from its beginning.
  std::string TakeTold(const std::string& function = "IoMessage: ") {
    std::string told;
    for (const std::string& line : TakeLog()) {
      const bool begins = line.find(": fd = ") != line.npos || line.find(": Write") != line.npos;
      if (line.rfind(function, 0) == 0 && !begins) told += line.substr(function.size()) + ";";
    }
    return told;
  }

  // Exact sizes: the sanitizers see every byte beyond.
  Bytes input_ = Message(0x10, 32, 2, 0xfedc1, 0xabc), output_ = Bytes(32), private_;
  unsigned char *in_ = input_.data(), *out_ = output_.data();
  unsigned int length_ = 100;  // the size that the caller names plays no part
  CpDremSession* session_;
};

TEST_F(Exchange, reads_private_data_behind_a_negative_status_only) {
  const struct {
    uint32_t status;
    size_t size, read;
    const char* told;
  } kCases[] = {{0, 16, 0, ""},
                {1, 16, 0, ""},
                {0x7fffffff, 16, 0, ""},
                {0x80000000, 16, 16, "Read 10 bytes of TEV private Data.;"},
                {0xffffffff, 11, 11, "Read b bytes of TEV private Data.;"},
                {0x80000001, 40, 16, "Read 10 bytes of TEV private Data.;"}};
  for (const auto& [status, size, read, told] : kCases) {
    for (const bool earlier : {false, true}) {
      SCOPED_TRACE(status);
      Answer(status, size);
      length_ = 100;
      void* const handle = state.kaloSessionA;
      EXPECT_EQ(earlier ? StartIoEx(in_, 32, out_, 31, private_.data(), &length_)
                        : StartIoEx3(handle, in_, 32, out_, 31, private_.data(), &length_),
                0u);
      Bytes echo = Message(0x10, 32, status, 0xfedc1, 0xabc), data(read, 'p');
      echo.back() = 0;
      data.resize(16);
      EXPECT_EQ(output_, echo);
      EXPECT_EQ(engine.Requests("KALO").back(), input_);
      EXPECT_EQ(private_, data);
      EXPECT_EQ(length_, read == 0 ? 100 : read);
      const std::string announced = "Received a status with the TEV private Data but set.;";
      EXPECT_EQ(TakeTold(), (read == 0 ? "" : announced + told) + "Everything went well!;");
    }
  }
}

TEST_F(Exchange, tells_of_private_data_that_cannot_be_read) {
  Answer(0x80000001, 16);
  engine.AddFault({Operation::kRead, Count(Operation::kRead) + 2, 1, zulisim::ErrnoFault{EIO}});
  // The text that is thrown has no full stop; the line has one.
  EXPECT_EQ(Thrown([this] { session_->IoMessage(in_, 32, out_, 32, private_.data(), &length_); }),
            RuntimeError("Error reading TEV private data"));
  EXPECT_EQ(TakeTold(),
            "Received a status with the TEV private Data but set.;Error reading TEV private data.;"
            "ZULI Output Msg fedc1;| 10;| 80000001;| abc\n;");
  EXPECT_EQ(length_, 100u);
}

TEST_F(Exchange, ends_early_and_well_without_buffers) {
  const auto expect = [this](unsigned char* in, unsigned char* out, unsigned char* data,
                             unsigned int* length, const std::string& told) {
    Answer(0x80000001, 16);
    session_->IoMessage(in, 32, out, 32, data, length);
    EXPECT_EQ(TakeTold(), told + "Everything went well!;");
  };
  const std::string unread =
      "Received a status with the TEV private Data but set.;Error in TEV input private data.;";
  expect(in_, nullptr, private_.data(), &length_, "Error in IOMessage output parameters;");
  expect(in_, out_, nullptr, &length_, unread);
  expect(in_, out_, private_.data(), nullptr, unread);
  expect(nullptr, out_, private_.data(), &length_, "Error in IOMessage input parameters;");
  EXPECT_EQ(length_, 100u);
  delete std::exchange(session_->connectRecord, nullptr);
  session_->IoMessage(nullptr, 32, nullptr, 32, nullptr, nullptr);
}

TEST_F(Exchange, is_one_call_each_on_a_plain_descriptor) {
  const auto records = engine.Records();
  EXPECT_EQ(records[0].openFlags, O_RDWR);
  EXPECT_EQ(records[0].openMode, 0x101000u);
  EXPECT_EQ(records[1].request, 0xC0104801u);
  engine.SetResponder("KALO", [](const auto&) { return zulisim::Reply{Bytes(4, 'r'), {}}; });
  engine.ShortenNext(Operation::kWrite, 20);
  EXPECT_EQ(session_->WriteToZuli(in_, 32), 20);
  EXPECT_EQ(session_->ReadFromZuli(out_, 18), 4);
  // Callers can trust errno, zero included, whatever the sinks do.
  sink->onLine = [] { errno = 7777; };
  errno = 0;
  EXPECT_EQ(session_->WriteToZuli(in_, 0), 0);
  EXPECT_EQ(errno, 0);
}

// Recovers as a transfer does; here a reconnect is of the same kind as the call.
TEST_F(Exchange, passes_ioctls_through_and_explains_what_fails) {
  constexpr uint32_t kRequest = 0xC0104802;  // negative as an int
  engine.SetIoctl(kRequest, [](void* argument) { return ++*static_cast<int*>(argument), 0; });
  int argument = 0;
  const struct {
    int losses, error;
    const char* told;
  } kCases[] = {
      {0, EBADF, "d is not a valid descriptor.;"},
      {0, EFAULT, "argp references an inaccessible memory area.;"},
      {0, EINVAL, "Request or argp is not valid.;"},
      {2, ENOTTY,
       "d is not associated with a character special device.;The specified request does not apply "
       "to the kind of object that the descriptor d references.;"},
      {2, EINTR, "Error sending IOCTL to ZULI. errno = 4.;"},
      {4, 0, "IOCTL call is successful.;"},
      {5, 0, "Error sending IOCTL to ZULI. errno = 19.;"},
  };
  for (const auto& [losses, error, told] : kCases) {
    engine.ClearFaults();
    for (int i = 0; i <= losses; ++i) {
      const uint64_t number = Count(Operation::kIoctl) + 1 + 2 * static_cast<uint64_t>(i);
      if (i < losses) engine.AddFault({Operation::kIoctl, number, 1, zulisim::DeviceLoss{}});
      if (i == losses && error != 0) {
        engine.AddFault({Operation::kIoctl, number, 1, zulisim::ErrnoFault{error}});
      }
    }
    EXPECT_EQ(Thrown([&] { session_->SendIoctlToZuli(static_cast<int>(kRequest), &argument); }),
              losses == 4 ? "nothing" : RuntimeError("Error sending IOCTL to ZULI."));
    const std::string before = error != 0 ? "errorno = " + std::to_string(error)
                                          : "(attempt #" + std::to_string(losses) + ").";
    EXPECT_THAT(TakeTold("SendIoctlToZuli: "), testing::EndsWith(before + ";" + told));
  }
  EXPECT_EQ(argument, 1);
}

}  // namespace
}  // namespace test
