#include "simulator/in_process/in_process_device.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <chrono>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <vector>

#include "simulator/output/transcript.h"

namespace zulisim {
namespace {

int ErrorOf(long result) { return result == -1 ? errno : 0; }

int Connected() {
  const int descriptor = open("/dev/zuli", O_RDWR);
  Guid guid = DefaultClients()[0].guid;
  EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
  return descriptor;
}

TEST(AttachmentTest, serves_the_device_only_while_it_exists) {
  int left = -1;
  char byte = 0;
  {
    Engine engine;
    InProcessDevice attachment(engine);
    EXPECT_THROW(InProcessDevice second(engine), std::logic_error);
    left = Connected();
  }
  EXPECT_EQ(ErrorOf(write(left, &byte, 1)), ENODEV);
  EXPECT_EQ(ErrorOf(open("/dev/zuli", O_RDWR)), ENOENT);
  // No new descriptor gets the old one's number, and the old mark means nothing to the next engine.
  Engine other;
  InProcessDevice attachment(other);
  EXPECT_NE(Connected(), left);
  EXPECT_EQ(ErrorOf(read(left, &byte, 1)), ENODEV);
  EXPECT_EQ(close(left), 0);
  EXPECT_EQ(other.Count(Operation::kClose), 0u);
}

TEST(AttachmentTest, handles_libc_calls_and_keeps_errno_on_success) {
  const std::string log = "/tmp/attachment_test." + std::to_string(getpid());
  Engine engine;
  InProcessDevice attachment(engine, {{"/data/Marvoleth.log", log}});
  const char* const path = "/data//Marvoleth.log";
  const std::string moved = log + ".moved";
  struct stat status {};
  for (const bool first : {true, false}) {
    close(first ? creat(path, 0600) : openat(AT_FDCWD, path, O_CREAT, 0600));
    std::ofstream(path, std::ios::app) << "line";
    EXPECT_EQ(first ? stat(path, &status) : lstat(path, &status), 0);
    EXPECT_EQ(status.st_size, 4);
    EXPECT_EQ(first ? access(path, R_OK) : faccessat(AT_FDCWD, path, R_OK, 0), 0);
    const auto move = [=](const char* from, const char* to) {
      return first ? rename(from, to) : renameat(AT_FDCWD, from, AT_FDCWD, to);
    };
    EXPECT_EQ(move(path, moved.c_str()), 0);
    EXPECT_EQ(truncate(path, 0), -1);
    EXPECT_EQ(move(moved.c_str(), path), 0);
    EXPECT_EQ(truncate(path, 0), 0);
    EXPECT_EQ(first ? unlink(path) : remove(path), 0);
  }

  constexpr int kKept = O_RDWR | O_APPEND | O_NONBLOCK;
  constexpr int kFlags = kKept | O_CLOEXEC | O_CREAT | O_TRUNC | O_NOCTTY;
  errno = 77;
  const int descriptor = open("/../dev/..//dev/./zuli", kFlags, 0640);
  EXPECT_EQ(engine.Records().at(0).openFlags, kFlags);
  EXPECT_EQ(engine.Records().at(0).openMode, 0640u);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(descriptor, F_GETFL), kKept);
  EXPECT_EQ(fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFL), O_RDWR | O_NONBLOCK);
  Guid guid = DefaultClients()[0].guid;
  // A driver may keep the request in an int.
  const int request = static_cast<int>(kConnectRequest);
  EXPECT_EQ(ioctl(descriptor, request, guid.data()), 0);
  EXPECT_EQ(errno, 77);
  char buffer[64];
  struct iovec pieces[2] = {{buffer, 20}, {buffer, 24}};
  EXPECT_EQ(writev(descriptor, pieces, 2), 44);
  EXPECT_EQ(engine.Requests("KALO").at(1).size(), 24u);
  pieces[0].iov_len = 30;
  EXPECT_EQ(readv(descriptor, pieces, 2), 20);
  engine.AddFault({Operation::kWrite, ErrnoFault{EIO}, {2, 2}});
  EXPECT_EQ(writev(descriptor, pieces, 2), 30) << "the second piece fails";
  EXPECT_EQ(ErrorOf(writev(descriptor, pieces, 2)), EIO) << "the first piece fails";
  struct stat seen[5] = {};
  EXPECT_EQ(stat("/dev/zuli", &seen[0]) + lstat("/dev/zuli", &seen[1]), 0);
  EXPECT_EQ(fstat(descriptor, &seen[2]) + fstatat(descriptor, "", &seen[3], AT_EMPTY_PATH), 0);
  EXPECT_EQ(fstatat(AT_FDCWD, "/dev/zuli", &seen[4], 0), 0);
  for (const struct stat& one : seen) EXPECT_TRUE(S_ISCHR(one.st_mode));
  EXPECT_EQ(access("/dev/zuli", W_OK) + faccessat(AT_FDCWD, "/dev/zuli", W_OK, AT_EACCESS), 0);
  EXPECT_EQ(ErrorOf(fdopen(descriptor, "r") == nullptr ? -1 : 0), EOPNOTSUPP);
  EXPECT_EQ(ErrorOf(freopen("/dev/zuli", "r", stdin) == nullptr ? -1 : 0), EOPNOTSUPP);
  // A number that was closed without the hooks no longer means the device.
  reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"))(descriptor);
  EXPECT_EQ(open("/dev/null", O_RDWR), descriptor);
  EXPECT_EQ(read(descriptor, buffer, 1), 0);
  // A failed open leaves no descriptor.
  const int next = dup(0);
  close(next);
  engine.AddFault({Operation::kOpen, ErrnoFault{EACCES}});
  EXPECT_EQ(ErrorOf(open("/dev/zuli", O_RDWR)), EACCES);
  // The hooks serve syscall(2).
  EXPECT_EQ(ErrorOf(syscall(SYS_openat, AT_FDCWD, nullptr, O_RDWR)), EFAULT);
#ifdef SYS_open
  EXPECT_EQ(close(static_cast<int>(syscall(SYS_open, "/dev/zuli", O_WRONLY, 0600))), 0);
#endif
  const long direct = syscall(SYS_openat, AT_FDCWD, "/none/../dev/zuli", O_RDWR, 0600);
  EXPECT_EQ(direct, next);
  EXPECT_EQ(engine.Records().back().openMode, 0600u);
  EXPECT_EQ(ErrorOf(syscall(SYS_read, direct, buffer, 1L)), ENOTCONN);
  guid = DefaultClients()[0].guid;
  EXPECT_EQ(syscall(SYS_ioctl, direct, kConnectRequest, guid.data()), 0);
  EXPECT_EQ(syscall(SYS_write, direct, buffer, 16L), 16);
  EXPECT_EQ(syscall(SYS_writev, direct, pieces, 2L), 54);
  EXPECT_EQ(syscall(SYS_read, direct, buffer, 64L), 16);
  EXPECT_EQ(syscall(SYS_readv, direct, pieces, 2L), 54);
  EXPECT_EQ(syscall(SYS_close, direct), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  const std::string tooLong = std::string(PATH_MAX - strlen("/dev/zuli"), '/') + "/dev/zuli";
  for (const char* other : {"/dev/zuli/", "/dev/zuli/.", "/dev/zuli/..", "/x/dev/zuli",
                            "/dev/xzuli", tooLong.c_str()}) {
    EXPECT_NE(ErrorOf(open(other, O_WRONLY)), 0) << other;
  }
}

TEST(AttachmentTest, duplicates_share_one_open_file) {
  Engine engine;
  InProcessDevice attachment(engine);
  const int first = Connected();
  const int second = dup(first);
  const int third = fcntl(first, F_DUPFD_CLOEXEC, 100);
  const int file = open("/dev/null", O_RDWR);
  const int opened = open("/dev/zuli", O_WRONLY);
  const int writer = dup3(opened, 90, O_CLOEXEC);
  EXPECT_EQ(close(opened), 0);
  EXPECT_EQ(fcntl(writer, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(ErrorOf(read(writer, nullptr, 0)), EBADF);
  EXPECT_EQ(close(writer), 0);
  EXPECT_EQ(dup2(first, first), first);
  EXPECT_EQ(ErrorOf(dup3(first, first, 0)), EINVAL);
  EXPECT_EQ(fcntl(first, F_GETFD), 0);
  EXPECT_EQ(close(fcntl(first, F_DUPFD, 50)), 0);
  EXPECT_EQ(close(first), 0);
  char buffer[16] = {};
  EXPECT_EQ(write(third, buffer, 16), 16);
  EXPECT_EQ(read(second, buffer, 16), 16);
  // dup2 can replace a descriptor of the device, and can replace another one by it.
  EXPECT_EQ(dup2(file, second), second);
  EXPECT_EQ(read(second, buffer, 16), 0);
  EXPECT_EQ(dup2(third, file), file);
  EXPECT_EQ(write(file, buffer, 16), 16);
  EXPECT_EQ(ErrorOf(dup2(-1, file)), EBADF);
  EXPECT_EQ(engine.Count(Operation::kWrite), 2u);
  EXPECT_EQ(close(third), 0);
  EXPECT_EQ(engine.OpenDescriptors(), 1u);
  engine.AddFault({Operation::kClose, ErrnoFault{EIO}});
  EXPECT_EQ(dup2(second, file), file);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

// attachments.sh also runs this test through the preload library and FUSE.
TEST(AttachmentTest, is_a_character_device) {
  Engine engine;
  ReplyRule slow;
  slow.client = "KALO";
  slow.latency = std::chrono::minutes(1);
  engine.AddReply(slow);
  std::optional<InProcessDevice> attachment;
  const char* const piecesServed = getenv("PIECES_SERVED");
  if (piecesServed == nullptr) attachment.emplace(engine);
  const auto openingFails = [](int flags) { return ErrorOf(open("/dev/zuli", flags, 0600)); };
  EXPECT_EQ(openingFails(O_RDWR | O_CREAT | O_EXCL), EEXIST);
  EXPECT_EQ(openingFails(O_RDONLY | O_DIRECTORY), ENOTDIR);
  char bytes[16] = {};
  const int path = open("/dev/zuli", O_PATH);
  EXPECT_EQ(ErrorOf(read(path, bytes, 16)), EBADF);
  const int reader = open("/dev/zuli", O_RDONLY | O_CREAT, 0600);
  EXPECT_EQ(ErrorOf(write(reader, bytes, 16)), EBADF);
  EXPECT_EQ(ErrorOf(read(reader, bytes, 16)), ENOTCONN);
  const int writer = creat("/dev/zuli", 0600);
  EXPECT_EQ(ErrorOf(read(writer, bytes, 16)), EBADF);
  EXPECT_EQ(ErrorOf(write(writer, bytes, 16)), ENOTCONN);

  const int device = Connected();
  struct pollfd events = {device, POLLIN | POLLOUT, 0};
  EXPECT_EQ(poll(&events, 1, 0), 1);
  EXPECT_EQ(events.revents, POLLIN | POLLOUT);
  EXPECT_EQ(ErrorOf(ioctl(device, kConnectRequest, nullptr)), EFAULT);
  EXPECT_EQ(ioctl(device, FIOCLEX), 0);
  EXPECT_EQ(fcntl(device, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(ioctl(device, FIONCLEX), 0);
  EXPECT_EQ(fcntl(device, F_GETFD), 0);
  int on = 1, off = 0;
  EXPECT_EQ(ErrorOf(ioctl(device, FIOASYNC, &on)), ENOTTY);
  EXPECT_EQ(ErrorOf(ioctl(device, FIOASYNC, nullptr)), EFAULT);
  EXPECT_EQ(ioctl(device, FIOASYNC, &off), 0);
  EXPECT_EQ(ioctl(device, FIONBIO, &on), 0);
  EXPECT_EQ(fcntl(device, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
  EXPECT_EQ(write(device, bytes, 16), 16);
  EXPECT_EQ(read(device, nullptr, 0), 0);
  EXPECT_EQ(ErrorOf(read(device, bytes, 16)), EAGAIN);  // the reply arrives after a minute
  const std::vector<struct iovec> pieces(300, {bytes, 1});
  EXPECT_EQ(writev(device, pieces.data(), 300), piecesServed ? atoi(piecesServed) : 300);
  for (const int descriptor : {path, reader, writer, device}) EXPECT_EQ(close(descriptor), 0);
}

TEST(EngineTest, refuses_wrong_options_and_survives_calls_from_a_responder) {
  Client tooLong;
  tooLong.maxMessageLength = kLongestMessage + 1;
  EXPECT_THROW(Engine({{tooLong}}), std::invalid_argument);
  Engine engine;
  EXPECT_THROW(engine.SetResponder("KAL0", nullptr), std::invalid_argument);
  for (const Fault& impossible :
       {Fault{Operation::kRead, ErrnoFault{0}}, Fault{Operation::kOpen, DeviceLoss{0, 0}},
        Fault{Operation::kRead, ShortCount{}, {0, 1}},
        Fault{Operation::kRead, ShortCount{}, {1, 0}},
        Fault{Operation::kRead, ShortCount{}, {}, 1.1}}) {
    EXPECT_THROW(engine.AddFault(impossible), std::invalid_argument);
  }
  engine.SetResponder("KALO", [&engine](const Bytes&) -> Reply {
    engine.LoseDevice();
    throw std::runtime_error("stuck");
  });
  InProcessDevice attachment(engine);
  const int descriptor = Connected();
  char buffer[8] = {};
  EXPECT_EQ(write(descriptor, buffer, 8), 8);
  const common::Colours colours{"", "", "\033[33m", "", "", "\033[0m"};
  EXPECT_EQ(TranscriptLine(engine.Records().back(), {colours, true}),
            "\033[33m   3  #1     KALO  write    8 bytes  command 0x0  "
            "(the client stays silent: stuck)\033[0m");
  EXPECT_EQ(ErrorOf(read(descriptor, buffer, 8)), ENODEV);
  engine.Close(1, CloseReason::kProgramEnded);
  engine.Close(1, CloseReason::kProgramEnded);
  EXPECT_EQ(engine.Count(Operation::kClose), 1u);
}

}  // namespace
}  // namespace zulisim
