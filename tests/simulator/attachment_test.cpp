#include "simulator/attachment.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace zulisim {
namespace {

class AttachmentTest : public testing::Test {
 protected:
  AttachmentTest() {
    char path[] = "/tmp/attachment.XXXXXX";
    folder = mkdtemp(path);
  }
  ~AttachmentTest() override {
    unlink((folder + "/log").c_str());
    rmdir(folder.c_str());
  }

  int Connected() {
    const int descriptor = open("/dev/zuli", O_RDWR);
    Guid guid = DefaultClients()[0].guid;
    EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
    return descriptor;
  }

  Engine engine;
  std::string folder;
};

TEST_F(AttachmentTest, serves_the_device_while_it_lives_and_no_longer) {
  errno = 0;
  EXPECT_EQ(open("/dev/zuli", O_RDWR), -1);
  EXPECT_EQ(errno, ENOENT);
  int left = -1;
  {
    Attachment attachment(engine);
    EXPECT_THROW(Attachment second(engine), std::logic_error);
    left = Connected();
  }
  char byte = 0;
  EXPECT_EQ(write(left, &byte, 1), -1);
  EXPECT_EQ(errno, ENODEV);
  {
    // Its number is not given out again, and its mark means nothing to the next engine.
    Engine other;
    Attachment attachment(other);
    const int fresh = Connected();
    EXPECT_NE(fresh, left);
    EXPECT_EQ(read(left, &byte, 1), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(close(left), 0);
    EXPECT_EQ(other.Count(Operation::kClose), 0u);
    EXPECT_EQ(close(fresh), 0);
  }
  EXPECT_EQ(open("/dev/zuli", O_RDWR), -1);
}

TEST_F(AttachmentTest, exchanges_messages_and_keeps_errno_on_success) {
  Attachment attachment(engine);
  errno = 77;
  const int descriptor = open("/dev//./zuli", O_RDWR, 0x101000);
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(engine.Records()[0].openFlags, O_RDWR);
  EXPECT_EQ(engine.Records()[0].openMode, 0x101000u);
  EXPECT_EQ(engine.Records()[0].descriptor, descriptor);
  Guid guid = DefaultClients()[0].guid;
  // The request as a driver passes it that keeps it in an int.
  const int request = static_cast<int>(kConnectRequest);
  EXPECT_EQ(ioctl(descriptor, static_cast<unsigned long>(request), guid.data()), 0);
  char buffer[64] = {1, 2, 3};
  EXPECT_EQ(write(descriptor, buffer, 40), 40);
  EXPECT_EQ(read(descriptor, buffer, sizeof(buffer)), 40);
  EXPECT_EQ(errno, 77);
  EXPECT_EQ(read(descriptor, buffer, sizeof(buffer)), -1);
  EXPECT_EQ(errno, EAGAIN);
  struct iovec pieces[2] = {{buffer, 20}, {buffer, 24}};
  EXPECT_EQ(writev(descriptor, pieces, 2), 44);
  EXPECT_EQ(readv(descriptor, pieces, 2), 44);
  EXPECT_EQ(engine.Requests("KALO").back().size(), 24u);
  errno = 0;
  EXPECT_EQ(close(descriptor), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(close(descriptor), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(AttachmentTest, duplicates_share_one_open_file) {
  Attachment attachment(engine);
  const int first = Connected();
  const int second = dup(first);
  const int third = fcntl(first, F_DUPFD_CLOEXEC, 100);
  const int file = open("/dev/null", O_RDWR);
  ASSERT_GE(third, 100);
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
  EXPECT_EQ(dup2(-1, file), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(close_range(100, ~0U, 0), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  engine.FailNext(Operation::kClose, EIO);
  EXPECT_EQ(close(file), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
  EXPECT_EQ(fcntl(file, F_GETFD), -1);
  close(second);
}

TEST_F(AttachmentTest, a_number_that_was_closed_behind_the_hooks_is_not_taken_for_the_device) {
  Attachment attachment(engine);
  const int descriptor = Connected();
  syscall(SYS_close, descriptor);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(ends[0], descriptor);
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 1);
  EXPECT_EQ(engine.Count(Operation::kRead), 0u);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(AttachmentTest, redirects_paths_and_shows_a_character_device) {
  Attachment attachment(engine, {{"/data/Marvoleth.log", folder + "/log"}});
  std::ofstream("/data/Marvoleth.log", std::ios::app) << "line";
  std::FILE* file = std::fopen("/data//Marvoleth.log", "r");
  ASSERT_NE(file, nullptr);
  char text[8] = {};
  EXPECT_EQ(std::fread(text, 1, sizeof(text), file), 4u);
  std::fclose(file);
  struct stat status {};
  EXPECT_EQ(stat("/data/Marvoleth.log", &status), 0);
  EXPECT_EQ(status.st_size, 4);
  EXPECT_EQ(access("/data/Marvoleth.log", R_OK), 0);
  EXPECT_EQ(access("/data/Marvoleth.log.old", F_OK), -1);
  EXPECT_EQ(unlink("/data/Marvoleth.log"), 0);
  EXPECT_EQ(access((folder + "/log").c_str(), F_OK), -1);

  EXPECT_EQ(stat("/dev/zuli", &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  const int descriptor = open("/dev/zuli", O_RDWR | O_CLOEXEC);
  EXPECT_EQ(fstat(descriptor, &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fdopen(descriptor, "r"), nullptr);
  EXPECT_EQ(errno, EOPNOTSUPP);
  close(descriptor);
}

TEST_F(AttachmentTest, threads_open_and_close_while_others_use_files) {
  Attachment attachment(engine);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([this] {
      char buffer[16] = {};
      for (int round = 0; round < 50; ++round) {
        const int file = open("/dev/null", O_RDWR);
        const int descriptor = Connected();
        EXPECT_EQ(write(file, buffer, 16), 16);
        EXPECT_EQ(write(descriptor, buffer, 16), 16);
        EXPECT_EQ(read(file, buffer, 16), 0);
        EXPECT_EQ(read(descriptor, buffer, 16), 16);
        EXPECT_EQ(close(descriptor) + close(file), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(engine.Count(Operation::kWrite), 150u);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

}  // namespace
}  // namespace zulisim
