// Tests kalo::Client: the result of each outcome, and what several clients share.

#include "api/kalo_client.h"

#include "tests/support/library_test.h"

namespace test {
namespace {

using kalo::Outcome;
using zulisim::Operation;

class Clients : public LibraryTest {
 protected:
  // Sends a request. Returns the outcome, whether the reply buffer holds zeros, the reply or
  // something else, and the error.
  std::string Send(kalo::Client& client, unsigned int length = 32, unsigned int room = 32) {
    Bytes request = Message(0x10, 32, 0, 7, 8), reply(room, '#');
    last_ = client.Send(request.data(), length, reply.data(), room);
    static const std::string kNames[] = {"done", "refused", "not sent", "unknown"};
    EXPECT_EQ(last_.privateDataLength, last_.outcome == Outcome::kRefused ? 16u : 0u);
    request[8] = static_cast<unsigned char>(last_.firmwareStatus);
    if (last_.firmwareStatus < 0) request[11] = 0x80;
    const bool error = last_.status != KALO_DLL_STATUS_SUCCESS || !last_.text.empty();
    return kNames[static_cast<int>(last_.outcome)] +
           (reply == Bytes(room) ? ", zeros"
            : reply == request   ? ", reply"
                                 : ", other") +
           (error ? ", " + std::to_string(last_.status) + ": " + last_.text : "");
  }

  kalo::Result last_;
};

TEST_F(Clients, report_each_outcome_and_clear_the_reply) {
  kalo::Client client;
  EXPECT_EQ(state.firmwareApiVersion, KALO_FIRMWARE_API_32);
  EXPECT_FALSE(state.stateInitFlag);
  engine.AddFault({Operation::kOpen, zulisim::ErrnoFault{ENOENT}});
  EXPECT_EQ(Send(client), "not sent, zeros, 1: Cannot open ZULI device.");
  EXPECT_EQ(Send(client), "done, reply");
  Answer(3);
  EXPECT_EQ(Send(client), "done, reply");
  EXPECT_EQ(last_.firmwareStatus, 3);
  Answer(0x80000001, Bytes(16, 'p'));
  EXPECT_EQ(Send(client), "refused, reply");
  EXPECT_EQ(last_.privateData[15], 'p');
  Answer(0);
  engine.AddFault({Operation::kRead, zulisim::ShortCount{8}});
  EXPECT_EQ(Send(client), "unknown, other, 0: the reply holds no status");
  EXPECT_EQ(Send(client, 15),
            "not sent, zeros, 3: KALO Exception 0x3 Input buffer < kalo header size");
  const uint64_t opened = engine.Count(Operation::kOpen);
  engine.AddFault({Operation::kRead, zulisim::ErrnoFault{EIO}});
  EXPECT_EQ(Send(client), "unknown, zeros, 1: Error reading message from ZULI.");
  EXPECT_EQ(engine.OpenDescriptors(), 0u) << "the client closed its handle";
  EXPECT_EQ(Send(client), "done, reply");
  EXPECT_EQ(engine.Count(Operation::kOpen), opened + 1);
  // Other code used the session and lost its connection. The client then does not use the session
  // and opens a new one.
  engine.LoseDevice();
  engine.AddFault({Operation::kOpen, zulisim::ErrnoFault{ENOENT}});
  Bytes message = Message(0x10);
  EXPECT_EQ(StartIo3(state.kaloSessionA, message.data(), 32, message.data(), 32), 1u);
  EXPECT_EQ(Send(client, 32, 16), "not sent, zeros, 0: the connection was closed");
  EXPECT_EQ(Send(client), "done, reply");
  // A damaged state destroys a new session. The client does not use it.
  engine.AddFault({Operation::kRead, zulisim::ErrnoFault{EIO}});
  EXPECT_EQ(Send(client), "unknown, zeros, 1: Error reading message from ZULI.");
  state.kaloInterfaceVersion = 1;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Send(client),
              "not sent, zeros, 5: KALO Exception 0x5 Previous provisioning attempt failed.");
  }
  state.kaloInterfaceVersion = 0;
  EXPECT_EQ(Send(client), "done, reply");
}

TEST_F(Clients, send_a_request_that_shares_a_buffer_with_its_reply) {
  kalo::Client client;
  for (const size_t shift : {0, 8}) {
    Bytes buffer = Message(0x10, 40);
    const Bytes request(buffer.begin() + shift, buffer.begin() + shift + 32);
    client.Send(buffer.data() + shift, 32, buffer.data() + 8 - shift, 24);
    EXPECT_EQ(engine.Requests("KALO").back(), request);
  }
}

TEST_F(Clients, announce_the_version_of_the_first_and_share_one_handle_unless_it_was_closed) {
  { const kalo::Client display(kalo::Firmware::kFenu, 0x30001, 1); }
  EXPECT_EQ(state.firmwareApiVersion, 0u);
  auto first = std::make_unique<kalo::Client>(kalo::Firmware::kKalo, KALO_FIRMWARE_API_30, 1);
  kalo::Client second(kalo::Firmware::kKalo, KALO_FIRMWARE_API_32, 0);
  EXPECT_EQ(state.firmwareApiVersion, KALO_FIRMWARE_API_30);
  EXPECT_TRUE(state.stateInitFlag);
  EXPECT_EQ(Send(*first), "done, reply");
  EXPECT_EQ(Send(second), "done, reply");
  first.reset();
  EXPECT_EQ(state.kaloRefCountA, 1u);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  // Other code closes the session of the display before a client shares it.
  void* handle = nullptr;
  FenuInit3(&handle);
  FenuCleanup();
  kalo::Client display(kalo::Firmware::kFenu);
  EXPECT_EQ(Send(display), "not sent, zeros, 0: other code has closed the session");
}

// The thread sanitizer also checks that clients of one firmware do not touch data of the other.
TEST_F(Clients, in_threads_of_their_own_do_not_interleave_their_commands) {
  // While one thread waits for its reply, the other could send.
  zulisim::ReplyRule late;
  late.client = "KALO";
  late.latency = std::chrono::milliseconds(1);
  engine.AddReply(late);
  const auto drive = [](kalo::Firmware firmware, uint32_t command) {
    for (int i = 0; i < 100; ++i) {
      kalo::Client client(firmware);
      Bytes request = Message(command), reply(32);
      EXPECT_EQ(client.Send(request.data(), 32, reply.data(), 32).outcome, Outcome::kDone);
      EXPECT_EQ(reply, request);
    }
  };
  std::thread display(drive, kalo::Firmware::kFenu, 0x30000);
  std::thread second(drive, kalo::Firmware::kKalo, 0x11);
  drive(kalo::Firmware::kKalo, 0x10);
  for (std::thread* thread : {&display, &second}) thread->join();
  Operation last = Operation::kRead;
  for (const auto& record : engine.Records()) {
    if (record.client != "KALO") continue;
    if (record.operation != Operation::kWrite && record.operation != Operation::kRead) continue;
    EXPECT_NE(record.operation, std::exchange(last, record.operation));
  }
}

}  // namespace
}  // namespace test
