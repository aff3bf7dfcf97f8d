#include "simulator/attachment.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace zulisim {
namespace {

int ErrorOf(long result) { return result == -1 ? errno : 0; }

int Connected() {
  const int descriptor = open("/dev/zuli", O_RDWR);
  Guid guid = DefaultClients()[0].guid;
  EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
  return descriptor;
}

TEST(AttachmentTest, serves_the_device_while_it_lives_and_no_longer) {
  EXPECT_EQ(ErrorOf(open("/dev/zuli", O_RDWR)), ENOENT);
  int left = -1;
  char byte = 0;
  {
    Engine engine;
    Attachment attachment(engine);
    EXPECT_THROW(Attachment second(engine), std::logic_error);
    left = Connected();
  }
  EXPECT_EQ(ErrorOf(write(left, &byte, 1)), ENODEV);
  {
    // Its number is not given out again, and its mark means nothing to the next engine.
    Engine other;
    Attachment attachment(other);
    const int fresh = Connected();
    EXPECT_NE(fresh, left);
    EXPECT_EQ(ErrorOf(read(left, &byte, 1)), ENODEV);
    EXPECT_EQ(close(left), 0);
    EXPECT_EQ(other.Count(Operation::kClose), 0u);
    EXPECT_EQ(close(fresh), 0);
  }
  EXPECT_EQ(ErrorOf(open("/dev/zuli", O_RDWR)), ENOENT);
}

TEST(AttachmentTest, exchanges_messages_and_keeps_errno_on_success) {
  Engine engine;
  Attachment attachment(engine);
  errno = 77;
  const int descriptor = open("/dev//./zuli", O_RDWR | O_CLOEXEC, 0x101000);
  EXPECT_EQ(engine.Records().at(0).openFlags, O_RDWR | O_CLOEXEC);
  EXPECT_EQ(engine.Records().at(0).openMode, 0x101000u);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  Guid guid = DefaultClients()[0].guid;
  // The request as a driver passes it that keeps it in an int.
  const int request = static_cast<int>(kConnectRequest);
  EXPECT_EQ(ioctl(descriptor, static_cast<unsigned long>(request), guid.data()), 0);
  char buffer[64] = {1, 2, 3};
  EXPECT_EQ(write(descriptor, buffer, 40), 40);
  EXPECT_EQ(read(descriptor, buffer, sizeof(buffer)), 40);
  EXPECT_EQ(errno, 77);
  struct iovec pieces[2] = {{buffer, 20}, {buffer, 24}};
  EXPECT_EQ(writev(descriptor, pieces, 2), 44);
  EXPECT_EQ(engine.Requests("KALO").back().size(), 24u);
  pieces[0].iov_len = 30;
  EXPECT_EQ(readv(descriptor, pieces, 2), 20);
  EXPECT_EQ(fdopen(descriptor, "r"), nullptr);
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_EQ(close(descriptor), 0);
  EXPECT_EQ(ErrorOf(close(descriptor)), EBADF);
}

TEST(AttachmentTest, duplicates_share_one_open_file) {
  Engine engine;
  Attachment attachment(engine);
  const int first = Connected();
  const int second = dup(first);
  const int third = fcntl(first, F_DUPFD_CLOEXEC, 100);
  const int file = open("/dev/null", O_RDWR);
  EXPECT_EQ(close(first), 0);
  char buffer[16] = {};
  EXPECT_EQ(write(third, buffer, 16), 16);
  EXPECT_EQ(read(second, buffer, 16), 16);
  EXPECT_EQ(engine.Count(Operation::kClose), 0u);
  // dup2 replaces what the target was, in either direction.
  EXPECT_EQ(dup2(file, second), second);
  EXPECT_EQ(write(second, buffer, 16), 16);
  EXPECT_EQ(engine.Count(Operation::kWrite), 1u);
  EXPECT_EQ(dup2(third, file), file);
  EXPECT_EQ(write(file, buffer, 16), 16);
  EXPECT_EQ(engine.Count(Operation::kWrite), 2u);
  EXPECT_EQ(ErrorOf(dup2(-1, file)), EBADF);
  EXPECT_EQ(close_range(100, ~0U, 0), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  engine.FailNext(Operation::kClose, EIO);
  EXPECT_EQ(ErrorOf(dup2(second, file)), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

TEST(AttachmentTest, a_number_that_was_closed_behind_the_hooks_is_not_taken_for_the_device) {
  Engine engine;
  Attachment attachment(engine);
  const int descriptor = Connected();
  syscall(SYS_close, descriptor);
  ASSERT_EQ(open("/dev/null", O_RDWR), descriptor);
  char byte = 0;
  EXPECT_EQ(read(descriptor, &byte, 1), 0);
  EXPECT_EQ(engine.Count(Operation::kRead), 0u);
}

TEST(AttachmentTest, redirects_paths_and_shows_a_character_device) {
  char folder[] = "/tmp/attachment.XXXXXX";
  const std::string log = mkdtemp(folder) + std::string("/log");
  Engine engine;
  Attachment attachment(engine, {{"/data/Marvoleth.log", log}});
  std::ofstream("/data//Marvoleth.log", std::ios::app) << "line";
  struct stat status {};
  EXPECT_EQ(stat("/data/Marvoleth.log", &status), 0);
  EXPECT_EQ(status.st_size, 4);
  EXPECT_EQ(access("/data/Marvoleth.log", R_OK), 0);
  EXPECT_EQ(access("/data/Marvoleth.log.old", F_OK), -1);
  EXPECT_EQ(unlink("/data/Marvoleth.log"), 0);
  EXPECT_EQ(rmdir(folder), 0);

  EXPECT_EQ(stat("/dev/zuli", &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  status = {};
  EXPECT_EQ(fstat(Connected(), &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST(AttachmentTest, threads_keep_their_exchanges_apart_and_records_have_one_order) {
  Engine engine;
  Attachment attachment(engine);
  std::vector<std::thread> threads;
  for (char id = 1; id <= 3; ++id) {
    threads.emplace_back([id] {
      for (int round = 0; round < 50; ++round) {
        char buffer[16] = {id};
        const int file = open("/dev/null", O_RDWR);
        const int descriptor = Connected();
        EXPECT_EQ(write(file, buffer, 16), 16);
        EXPECT_EQ(write(descriptor, buffer, 16), 16);
        EXPECT_EQ(read(file, buffer, 16), 0);
        buffer[0] = 0;
        EXPECT_EQ(read(descriptor, buffer, 16), 16);
        EXPECT_EQ(buffer[0], id);
        EXPECT_EQ(close(descriptor) + close(file), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  std::uint64_t sequence = 0;
  for (const auto& record : engine.Records()) EXPECT_EQ(record.sequence, ++sequence);
  EXPECT_EQ(sequence, 3 * 50 * 5u);
}

}  // namespace
}  // namespace zulisim
