#include "simulator/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "simulator/transcript.h"

namespace zulisim {
namespace {

using testing::HasSubstr;

Bytes Request(std::uint32_t command, std::size_t size = 32) {
  Bytes request(size);
  for (std::size_t i = 0; i < size; ++i) request[i] = static_cast<std::uint8_t>(i + 1);
  SetWordAt(&request, kCommandIdOffset, command);
  return request;
}

class EngineTest : public testing::Test {
 protected:
  ~EngineTest() override {
    if (!HasFailure()) return;
    for (const OperationRecord& record : engine.Records()) {
      std::cerr << TranscriptLine(record) << "\n";
    }
  }

  std::uint64_t Open() { return static_cast<std::uint64_t>(engine.Open(2, 0, 7).value); }

  Result Connect(std::uint64_t connection, const std::string& name = "KALO") {
    for (const Client& client : DefaultClients()) {
      if (client.name != name) continue;
      connectRecord = client.guid;
      return engine.Ioctl(connection, kConnectRequest, connectRecord.data());
    }
    throw std::invalid_argument(name);
  }

  std::uint64_t Connected(const std::string& name = "KALO") {
    const std::uint64_t connection = Open();
    EXPECT_EQ(Connect(connection, name).error, 0);
    return connection;
  }

  Result Write(std::uint64_t connection, const Bytes& request) {
    return engine.Write(connection, request.data(), request.size());
  }

  // The message, or what errno says instead.
  Bytes Read(std::uint64_t connection, std::size_t room = 4096, int expectedError = 0) {
    Bytes buffer(room);
    const Result result = engine.Read(connection, buffer.data(), room);
    EXPECT_EQ(result.error, expectedError);
    buffer.resize(result.value < 0 ? 0 : static_cast<std::size_t>(result.value));
    return buffer;
  }

  OperationRecord Last() { return engine.Records().back(); }

  Engine engine;
  Guid connectRecord{};
};

TEST_F(EngineTest, connect_writes_the_properties_and_keeps_the_second_half) {
  EngineOptions options;
  options.clients[0].maxMessageLength = 0x12345;
  options.clients[0].protocolVersion = 0xA7;
  Engine other(options);
  Guid guid = options.clients[0].guid;
  ASSERT_EQ(other.Open(2, 0, 7).value, 1);
  ASSERT_EQ(other.Ioctl(1, kConnectRequest, guid.data()).value, 0);
  const Guid expected = {0x45, 0x23, 0x01, 0x00, 0xA7, 0,    0,    0,
                         0xa6, 0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1};
  EXPECT_EQ(guid, expected);
  options.clients[0].maxMessageLength = kLongestMessage + 1;
  EXPECT_THROW(Engine{options}, std::invalid_argument);
}

TEST_F(EngineTest, echoes_with_status_0_and_records_both_sides) {
  const std::uint64_t fenu = Connected("FENU");
  const Bytes request = Request(0x30001);
  EXPECT_EQ(Write(fenu, request).value, 32);
  Bytes expected = request;
  SetWordAt(&expected, kStatusOffset, 0);
  EXPECT_EQ(Read(fenu), expected);
  EXPECT_EQ(Last().client, "FENU");
  EXPECT_EQ(Last().commandId, 0x30001u);
  EXPECT_EQ(Last().status, 0u);
  EXPECT_EQ(engine.Requests("FENU"), std::vector<Bytes>{request});
  EXPECT_TRUE(engine.Requests("KALO").empty());
  // A request that ends within its header is echoed as far as it goes.
  EXPECT_EQ(Write(fenu, Bytes(9, 0xFF)).value, 9);
  EXPECT_EQ(Read(fenu), (Bytes{255, 255, 255, 255, 255, 255, 255, 255, 0}));
}

TEST_F(EngineTest, refuses_as_a_kernel_driver_would_and_says_why) {
  const std::uint64_t connection = Open();
  Bytes buffer(5000);
  const auto refused = [this](const Result& result, int error, const char* why) {
    EXPECT_EQ(result.value, -1);
    EXPECT_EQ(ErrnoName(result.error), ErrnoName(error));
    EXPECT_THAT(Last().why, HasSubstr(why));
  };
  refused(engine.Write(connection, buffer.data(), 32), ENOTCONN, "not connected");
  refused(engine.Read(connection, buffer.data(), 32), ENOTCONN, "not connected");
  refused(engine.Ioctl(connection, 0xC0104802, buffer.data()), ENOTTY, "0xc0104802");
  refused(engine.Ioctl(connection, kConnectRequest, nullptr), EFAULT, "null");
  connectRecord.fill(0xEE);
  refused(engine.Ioctl(connection, kConnectRequest, connectRecord.data()), ENOENT,
          "{EEEEEEEE-EEEE-");
  ASSERT_EQ(Connect(connection).error, 0);
  refused(Connect(connection, "FENU"), EBUSY, "connected already");
  refused(engine.Write(connection, buffer.data(), 4097), EMSGSIZE, "4096");
  refused(engine.Write(connection, nullptr, 4), EFAULT, "null");
  refused(engine.Read(connection, buffer.data(), 32), EAGAIN, "no message");
  ASSERT_EQ(engine.Close(connection).value, 0);
  refused(engine.Close(connection), EBADF, "not open");
  refused(engine.Read(connection, buffer.data(), 32), EBADF, "not open");
  // The largest request is fine, and nothing moves when nothing is asked for.
  const std::uint64_t again = Connected();
  EXPECT_EQ(engine.Write(again, buffer.data(), 4096).value, 4096);
  EXPECT_EQ(engine.Write(again, nullptr, 0).value, 0);
  EXPECT_EQ(engine.Read(again, nullptr, 0).value, 0);
  EXPECT_EQ(Read(again).size(), 4096u);
}

TEST_F(EngineTest, a_read_takes_one_message_and_cuts_what_does_not_fit) {
  const std::uint64_t connection = Connected();
  Write(connection, Request(1));
  Write(connection, Request(2));
  EXPECT_EQ(Read(connection, 8).size(), 8u);
  EXPECT_THAT(Last().why, HasSubstr("32 bytes"));
  EXPECT_EQ(Last().status, 0u);
  EXPECT_EQ(WordAt(Read(connection), kCommandIdOffset), 2u);
  Read(connection, 8, EAGAIN);
}

TEST_F(EngineTest, the_responder_of_the_command_answers_before_the_clients) {
  engine.SetResponder("KALO",
                      [](const Bytes& r) { return EchoReply(r, 0x80000001, Bytes(16, 0xAB)); });
  engine.SetResponder("KALO", 5, [](const Bytes&) -> Reply { throw std::runtime_error("stuck"); });
  const std::uint64_t kalo = Connected();
  const std::uint64_t fenu = Connected("FENU");
  Write(kalo, Request(4));
  EXPECT_EQ(WordAt(Read(kalo), kStatusOffset), 0x80000001u);
  EXPECT_EQ(Read(kalo, 16), Bytes(16, 0xAB));
  EXPECT_EQ(Last().payload, Payload::kPrivateData);
  EXPECT_EQ(Last().commandId, 4u);
  EXPECT_EQ(Write(kalo, Request(5)).value, 32);
  EXPECT_THAT(Last().why, HasSubstr("stuck"));
  Read(kalo, 16, EAGAIN);
  Write(fenu, Request(5));
  EXPECT_EQ(Read(fenu).size(), 32u);
  EXPECT_THROW(engine.SetResponder("KAL0", nullptr), std::invalid_argument);
}

TEST_F(EngineTest, a_failing_operation_has_no_other_effect) {
  engine.AddFault({Operation::kWrite, 2, 2, ErrnoFault{EIO}});
  engine.FailNext(Operation::kOpen, EACCES);
  EXPECT_EQ(engine.Open(2, 0, 7).error, EACCES);
  engine.FailNext(Operation::kIoctl, EINVAL);
  const std::uint64_t connection = Open();
  EXPECT_EQ(Connect(connection).error, EINVAL);
  EXPECT_EQ(Connect(connection).error, 0);
  std::vector<int> errors;
  for (std::uint32_t i = 1; i <= 4; ++i) errors.push_back(Write(connection, Request(i)).error);
  EXPECT_EQ(errors, (std::vector<int>{0, EIO, EIO, 0}));
  engine.FailNext(Operation::kRead, EINTR);
  Read(connection, 64, EINTR);
  EXPECT_EQ(WordAt(Read(connection), kCommandIdOffset), 1u);
  EXPECT_EQ(WordAt(Read(connection), kCommandIdOffset), 4u);
  engine.FailNext(Operation::kClose, EIO);
  EXPECT_EQ(engine.Close(connection).error, EIO);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(engine.Count(Operation::kWrite), 4u);
}

TEST_F(EngineTest, a_short_count_cuts_the_message_for_good) {
  const std::uint64_t connection = Connected();
  engine.ShortenNext(Operation::kWrite, 20);
  EXPECT_EQ(Write(connection, Request(1)).value, 20);
  EXPECT_EQ(engine.Requests("KALO").front().size(), 20u);
  engine.ShortenNext(Operation::kRead, 3);
  EXPECT_EQ(Read(connection).size(), 3u);
  Read(connection, 64, EAGAIN);
  EXPECT_THROW(engine.AddFault({Operation::kClose, 1, 1, ShortCount{1}}), std::invalid_argument);
}

TEST_F(EngineTest, a_loss_strikes_every_open_descriptor_until_a_new_open) {
  const std::uint64_t kalo = Connected();
  const std::uint64_t fenu = Connected("FENU");
  engine.LoseDeviceAtNext(Operation::kRead, 1, {2, ENOENT, true});
  Read(kalo, 16, ENODEV);
  Read(kalo, 16, ENODEV);
  EXPECT_EQ(Write(fenu, Request(0x30000)).error, ENODEV);
  EXPECT_EQ(engine.Ioctl(fenu, kConnectRequest, connectRecord.data()).error, ENODEV);
  EXPECT_EQ(engine.Close(kalo).error, 0);
  EXPECT_EQ(engine.Open(2, 0, 7).error, ENOENT);
  EXPECT_EQ(engine.Open(2, 0, 7).error, ENOENT);
  const std::uint64_t again = Connected();
  EXPECT_EQ(Write(again, Request(1)).error, 0);
  EXPECT_EQ(Write(fenu, Request(0x30000)).error, ENODEV);
  // A close that meets the loss succeeds itself.
  engine.LoseDeviceAtNext(Operation::kClose);
  EXPECT_EQ(engine.Close(fenu).error, 0);
  Read(again, 16, ENODEV);
}

TEST_F(EngineTest, unread_replies_outlive_a_loss_that_an_open_repairs_at_once) {
  const auto lostAfterWrite = [this](const DeviceLoss& loss) {
    const std::uint64_t connection = Connected();
    EXPECT_EQ(Write(connection, Request(9)).error, 0);
    engine.LoseDeviceAtNext(Operation::kRead, 1, loss);
    Read(connection, 64, ENODEV);
    engine.Close(connection);
  };
  lostAfterWrite({});
  Read(Connected(), 64);  // and not for a client that did not ask
  lostAfterWrite({});
  Read(Connected("FENU"), 64, EAGAIN);
  lostAfterWrite({0, ENODEV, false});
  Read(Connected(), 64, EAGAIN);
  lostAfterWrite({1, ENODEV, true});
  EXPECT_EQ(engine.Open(2, 0, 7).error, ENODEV);
  Read(Connected(), 64, EAGAIN);
}

TEST_F(EngineTest, a_responder_may_lose_the_device_and_its_reply_with_it) {
  engine.SetResponder("KALO", [this](const Bytes& request) {
    engine.LoseDevice();
    return EchoReply(request);
  });
  const std::uint64_t connection = Connected();
  EXPECT_EQ(Write(connection, Request(1)).value, 32);
  Read(connection, 64, ENODEV);
  Read(Connected(), 64, EAGAIN);
}

TEST_F(EngineTest, a_program_that_ended_is_closed_once) {
  const std::uint64_t connection = Connected();
  engine.Release(connection);
  engine.Release(connection);
  EXPECT_EQ(engine.Count(Operation::kClose), 1u);
  EXPECT_THAT(Last().why, HasSubstr("ended"));
}

TEST_F(EngineTest, threads_keep_their_exchanges_apart_and_observers_see_one_order) {
  class Order : public OperationObserver {
   public:
    void OnOperation(const OperationRecord& operation) override {
      ordered = ordered && operation.sequence == ++seen;
    }
    std::uint64_t seen = 0;
    bool ordered = true;
  } order;
  engine.AddObserver(&order);
  std::vector<std::thread> threads;
  for (std::uint32_t id = 1; id <= 4; ++id) {
    threads.emplace_back([this, id] {
      Guid guid = DefaultClients()[0].guid;
      const auto connection = static_cast<std::uint64_t>(engine.Open(2, 0, 7).value);
      engine.Ioctl(connection, kConnectRequest, guid.data());
      for (int i = 0; i < 50; ++i) {
        Write(connection, Request(id));
        EXPECT_EQ(WordAt(Read(connection), kCommandIdOffset), id);
      }
      engine.Close(connection);
    });
  }
  for (std::thread& thread : threads) thread.join();
  engine.RemoveObserver(&order);
  Open();
  EXPECT_TRUE(order.ordered);
  EXPECT_EQ(order.seen, 4 * (3 + 2 * 50u));
}

TEST(TranscriptTest, a_line_names_what_happened) {
  OperationRecord record;
  record.sequence = 12;
  record.operation = Operation::kRead;
  record.connection = 3;
  record.descriptor = 5;
  record.client = "KALO";
  record.length = 4096;
  record.result = 64;
  record.commandId = 0x10;
  record.status = 0x80000001;
  EXPECT_EQ(TranscriptLine(record),
            "  12  fd 5   KALO  read     64 of 4096 bytes  command 0x10  status 0x80000001");
  record.error = ENODEV;
  record.result = -1;
  record.commandId = record.status = std::nullopt;
  record.why = "the device is lost at read 4";
  EXPECT_EQ(TranscriptLine(record, {true, true}),
            "\033[31m  12  #3     KALO  read     failed  ENODEV  4096 bytes  "
            "(the device is lost at read 4)\033[0m");
}

}  // namespace
}  // namespace zulisim
