// Tests the servers of the preload library and of the kernel in the process that uses them. The
// test's calls are hooked like those of a preloaded program.

#include <sys/mount.h>

#include "simulator/engine/engine.h"
#include "simulator/kernel/kernel_server.h"
#include "simulator/preload/device_server.h"
#include "tests/support/standard_headers.h"

namespace zulisim {
namespace {

// The hooks read the environment before main.
__attribute__((constructor(101))) void SetSocket() {
  setenv(protocol::kSocketVariable, ("/tmp/server_test." + std::to_string(getpid())).c_str(), 1);
}
const char* Path() { return getenv(protocol::kSocketVariable); }

int Connected(const char* device) {
  const int descriptor = open(device, O_RDWR);
  Guid guid = DefaultClients()[0].guid;
  EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
  return descriptor;
}

// Starts a read of a reply that the engine holds. The read will fail with `error`, unless that is
// 0.
std::thread HeldRead(Engine* engine, int descriptor, int error) {
  ReplyRule rule;
  rule.client = "KALO";
  rule.command = 0x19;
  rule.held = true;
  engine->AddReply(rule);
  const std::size_t reads = engine->Count(Operation::kRead);
  char message[16] = {0, 0, 0, 0, 0x19};
  EXPECT_EQ(write(descriptor, message, 16), 16);
  std::thread reader([=] {
    char reply[16];
    EXPECT_EQ(read(descriptor, reply, 16) == 16 ? 0 : errno, error);
  });
  while (engine->Count(Operation::kRead) == reads) std::this_thread::yield();
  return reader;
}

// Uses more threads than a process has channels. Each thread gets its own replies, also while a
// read waits, and a connection ends when its last descriptor is closed, not before.
template <typename Server, typename... Arguments>
void ServeThreads(const char* device, const Arguments&... arguments) {
  constexpr std::size_t kThreads = 12, kRounds = 20;
  Engine engine;
  auto server = std::make_unique<Server>(engine, arguments...);
  const int left = Connected(device);
  std::thread reader = HeldRead(&engine, left, ENODEV);
  const int shared = Connected(device);
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < kThreads; ++number) {
    threads.emplace_back([=] {
      for (std::size_t round = 0; round < kRounds; ++round) {
        const int first = Connected(device);
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
  // The kernel sends a close later.
  while (engine.OpenDescriptors() != 2) std::this_thread::yield();
  EXPECT_EQ(close(shared), 0);
  while (engine.OpenDescriptors() != 1) std::this_thread::yield();
  for (const OperationRecord& record : engine.Records()) {
    EXPECT_FALSE(record.abandoned);
    EXPECT_TRUE(record.process == getpid() || record.operation == Operation::kClose);
  }
  EXPECT_EQ(engine.Count(Operation::kClose), kThreads * kRounds + 1);

  // A waiting read ends when the service ends. The close happens first and ends the read.
  server.reset();
  reader.join();
  EXPECT_EQ(engine.Records().end()[-2].why, CloseReasonText(CloseReason::kServiceEnded));
  EXPECT_EQ(close(left), 0);
}

TEST(PreloadServerTest, serves_threads_until_the_service_ends) {
  ServeThreads<DeviceServer>("/dev/zuli", Path());
  EXPECT_EQ(open("/dev/zuli", O_RDWR), -1);
  EXPECT_EQ(errno, ENODEV);
}

TEST(KernelServerTest, serves_threads_until_the_service_ends) {
  if (!KernelServer::Built() || access("/dev/fuse", W_OK) != 0 ||
      system("unshare -m true 2>/dev/null || unshare -Urm true") != 0) {
    GTEST_SKIP() << "cannot mount a file through FUSE";
  }
  std::ofstream{Path()};
  // Even SIGKILL does not end a thread that waits for a server in its own process.
  std::promise<void> ended;
  std::thread watchdog([future = ended.get_future()] {
    if (future.wait_for(std::chrono::seconds(40)) == std::future_status::ready) return;
    umount2(Path(), MNT_FORCE);
    _exit(1);
  });
  ServeThreads<KernelServer>(Path(), KernelServer::Kind::kFile, Path(), false);
  ended.set_value();
  watchdog.join();
  EXPECT_EQ(unlink(Path()), 0);
}

TEST(PreloadServerTest, continues_after_a_limit_of_descriptors) {
  Engine engine;
  const DeviceServer server(engine, Path());
  const int device = Connected("/dev/zuli");
  std::thread reader = HeldRead(&engine, device, 0);

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
    ASSERT_TRUE(opened >= 0 || (opened == -1 && errno == EMFILE)) << opened << strerror(errno);
  }
  limit.rlim_cur = usual;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(close(opened), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);

  EXPECT_EQ(engine.ReleaseReplies(), 1u);
  reader.join();
  for (const int error : {0, ENODEV}) {
    std::thread readers[] = {HeldRead(&engine, device, error), HeldRead(&engine, device, error)};
    if (error == ENODEV) engine.LoseDevice();
    EXPECT_EQ(engine.ReleaseReplies(), 2u);
    for (std::thread& each : readers) each.join();
  }
  EXPECT_EQ(close(device), 0);
  for (const OperationRecord& record : engine.Records()) {
    EXPECT_EQ(record.process, getpid());
    EXPECT_EQ(record.thread != getpid(), record.operation == Operation::kRead);
  }
}

}  // namespace
}  // namespace zulisim
