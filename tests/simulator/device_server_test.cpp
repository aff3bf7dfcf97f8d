// Tests the server of the preload library and the library's own code in one process. The test's
// calls of open, read, write and close are hooked like those of a preloaded program.

#include "simulator/preload/device_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/engine/engine.h"

namespace zulisim {
namespace {

// The hooks read the environment before main, so the test sets the variable and executes itself
// again.
std::string SocketPath() {
  const char* path = getenv(protocol::kSocketVariable);
  if (path != nullptr) return path;
  char folder[] = "/tmp/device_server_test.XXXXXX";
  setenv(protocol::kSocketVariable, (mkdtemp(folder) + std::string("/engine")).c_str(), 1);
  const std::string filter =
      "--gtest_filter=*" +
      std::string(testing::UnitTest::GetInstance()->current_test_info()->name());
  execl("/proc/self/exe", "/proc/self/exe", filter.c_str(), nullptr);
  throw std::runtime_error("cannot run the test again");
}

int Connected() {
  const int descriptor = open("/dev/zuli", O_RDWR);
  Guid guid = DefaultClients()[0].guid;
  EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
  return descriptor;
}

// Uses more threads than a process has channels. Each thread gets its own replies, and a connection
// ends when its last descriptor is closed, not before.
TEST(DeviceServerTest, serves_threads_until_the_service_ends) {
  const std::string path = SocketPath();
  constexpr std::size_t kThreads = 12, kRounds = 20;
  constexpr char kSilent = 0x19;
  Engine engine;
  ReplyRule slow;
  slow.client = "KALO";
  slow.command = kSilent;
  slow.latency = std::chrono::minutes(1);
  engine.AddReply(slow);
  auto server = std::make_unique<DeviceServer>(engine, path);
  const int shared = Connected();
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < kThreads; ++number) {
    threads.emplace_back([number, shared] {
      for (std::size_t round = 0; round < kRounds; ++round) {
        const int first = Connected();
        const int second = dup(first);
        EXPECT_EQ(close(first), 0);
        Bytes message(16 + number, static_cast<unsigned char>(number)), reply(4096);
        message[4] = 0x10;
        const auto size = static_cast<ssize_t>(message.size());
        EXPECT_EQ(write(second, message.data(), message.size()), size);
        EXPECT_EQ(write(shared, message.data(), message.size()), size);
        EXPECT_EQ(read(second, reply.data(), reply.size()), size);
        EXPECT_TRUE(std::equal(message.begin() + 16, message.end(), reply.begin() + 16));
        EXPECT_EQ(close(second), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  EXPECT_EQ(close(shared), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  for (const OperationRecord& record : engine.Records()) EXPECT_FALSE(record.abandoned);
  EXPECT_EQ(engine.Count(Operation::kClose), kThreads * kRounds + 1);

  // A waiting read ends when the service ends.
  const int left = Connected();
  const char request[16] = {0, 0, 0, 0, kSilent};
  EXPECT_EQ(write(left, request, sizeof(request)), 16);
  const std::uint64_t before = engine.Count(Operation::kRead);
  std::thread reader([left] {
    char reply[16];
    EXPECT_EQ(read(left, reply, sizeof(reply)), -1);
    EXPECT_EQ(errno, ENODEV);
  });
  while (engine.Count(Operation::kRead) == before) std::this_thread::yield();
  server.reset();
  reader.join();
  // The close happens first and ends the read.
  const std::vector<OperationRecord> records = engine.Records();
  EXPECT_EQ(records.at(records.size() - 2).why, CloseReasonText(CloseReason::kServiceEnded));
  EXPECT_EQ(open("/dev/zuli", O_RDWR), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(close(left), 0);
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

TEST(DeviceServerTest, continues_after_signals_and_a_limit_of_descriptors) {
  const std::string path = SocketPath();
  Engine engine;
  ReplyRule rule;
  rule.client = "KALO";
  rule.held = true;
  engine.AddReply(rule);
  auto server = std::make_unique<DeviceServer>(engine, path);
  const int device = Connected();
  char message[16] = {};
  EXPECT_EQ(write(device, message, 16), 16);
  std::thread reader([=] {
    char reply[16];
    EXPECT_EQ(read(device, reply, 16), 16) << strerror(errno);
  });
  while (engine.Count(Operation::kRead) == 0) std::this_thread::yield();

  // The waiting read uses the kept channel, so this thread needs another one.
  const int free = dup(0);
  close(free);
  struct rlimit limit {};
  getrlimit(RLIMIT_NOFILE, &limit);
  // Leaves room for both ends of a channel. Otherwise this thread would wait for a server that
  // waits for a descriptor.
  const rlim_t usual = std::exchange(limit.rlim_cur, static_cast<rlim_t>(free) + 1);
  int opened = -1;
  while (opened < 0 && limit.rlim_cur++ < usual) {
    setrlimit(RLIMIT_NOFILE, &limit);
    opened = open("/dev/zuli", O_RDWR);
    ASSERT_TRUE(opened >= 0 || errno == EMFILE) << limit.rlim_cur << strerror(errno);
  }
  limit.rlim_cur = usual;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(close(opened), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);

  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  for (int i = 0; i < 20; ++i) {
    pthread_kill(reader.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(engine.ReleaseReplies(), 1u);
  reader.join();
  EXPECT_EQ(close(device), 0);
  server.reset();
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

}  // namespace
}  // namespace zulisim
