// What no program can bring about; run_test.cpp has the rest.

#include "simulator/engine.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "simulator/transcript.h"

namespace zulisim {
namespace {

class EngineTest : public testing::Test {
 protected:
  std::uint64_t Connected() {
    Guid guid = DefaultClients()[0].guid;
    const auto connection = static_cast<std::uint64_t>(engine.Open(2, 0, 7).value);
    EXPECT_EQ(engine.Ioctl(connection, kConnectRequest, guid.data()).error, 0);
    return connection;
  }
  Result Write(std::uint64_t connection, std::uint8_t command) {
    const Bytes request = {0, 0, 0, 0, command, 0, 0, 0};
    return engine.Write(connection, request.data(), request.size());
  }
  Result Read(std::uint64_t connection) { return engine.Read(connection, buffer, sizeof(buffer)); }

  Engine engine;
  char buffer[16];
};

TEST_F(EngineTest, responder_may_fail_or_lose_the_device_with_its_reply) {
  engine.SetResponder("KALO", 5, [](const Bytes&) -> Reply { throw std::runtime_error("stuck"); });
  engine.SetResponder("KALO", [this](const Bytes& request) {
    engine.LoseDevice();
    return EchoReply(request);
  });
  EXPECT_THROW(engine.SetResponder("KAL0", nullptr), std::invalid_argument);
  const std::uint64_t connection = Connected();
  std::ostringstream text;
  Transcript transcript(&text, {true, true});
  engine.AddObserver(&transcript);
  Write(connection, 5);
  EXPECT_EQ(Read(connection).error, EAGAIN);
  Write(connection, 6);
  EXPECT_EQ(Read(connection).error, ENODEV);
  Read(Connected());
  engine.Release(connection);
  engine.Release(connection);
  engine.Close(connection);
  engine.RemoveObserver(&transcript);
  EXPECT_EQ("\n" + std::regex_replace(text.str(), std::regex("\033"), "^"), R"(
^[33m   3  #1     KALO  write    8 bytes  command 0x5  (the client stays silent: stuck)^[0m
^[31m   4  #1     KALO  read     failed  EAGAIN  16 bytes  (no message is pending)^[0m
   5  #1     KALO  write    8 bytes  command 0x6
^[31m   6  #1     KALO  read     failed  ENODEV  16 bytes  (the device was lost after this descriptor was opened)^[0m
   7  #2     -     open     ok
   8  #2     KALO  connect  ok  maximum 4096 bytes, version 1
^[31m   9  #2     KALO  read     failed  EAGAIN  16 bytes  (no message is pending)^[0m
^[33m  10  #1     KALO  close    ok  (the program ended without a close)^[0m
^[31m  11  #1     -     close    failed  EBADF  (the connection is not open)^[0m
)");
}

TEST_F(EngineTest, read_that_waits_for_a_late_reply_ends_with_the_connection_or_the_device) {
  engine.SetResponder("KALO", [](const Bytes& request) {
    Reply reply = EchoReply(request);
    reply.latency = std::chrono::minutes(1);
    return reply;
  });
  std::uint64_t reads = 0;
  for (const int error : {ENODEV, EBADF}) {
    const std::uint64_t connection = Connected();
    Write(connection, 1);
    std::thread reader([&] { EXPECT_EQ(Read(connection).error, error); });
    for (++reads; engine.Count(Operation::kRead) < reads;) std::this_thread::yield();
    error == ENODEV ? engine.LoseDevice() : engine.Release(connection);
    reader.join();
  }
}

TEST_F(EngineTest, client_has_no_longer_messages_than_an_attachment_carries) {
  EngineOptions options;
  options.clients[0].maxMessageLength = kLongestMessage + 1;
  EXPECT_THROW(Engine{options}, std::invalid_argument);
}

}  // namespace
}  // namespace zulisim
