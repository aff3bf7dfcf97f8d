#include "simulator/in_process/in_process_device.h"
#include "tests/support/standard_headers.h"

#include <limits.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>

extern "C" ssize_t __read_chk(int, void*, std::size_t, std::size_t);  // a fortified read

namespace zulisim {
namespace {

constexpr const char* kDevice = "/dev/zuli";
char buffer[64];

// Results of calls, or their errno as a negative number.
using Results = std::vector<long>;
long ResultOf(long result) { return result == -1 ? -errno : result; }
long Read(int descriptor) { return ResultOf(read(descriptor, buffer, 16)); }
long Write(int descriptor) { return ResultOf(write(descriptor, buffer, 16)); }
int Open(int flags) { return static_cast<int>(ResultOf(open(kDevice, flags, 0600))); }

int Connected() {
  const int descriptor = Open(O_RDWR);
  Guid guid = DefaultClients()[0].guid;
  EXPECT_EQ(ioctl(descriptor, kConnectRequest, guid.data()), 0);
  return descriptor;
}

TEST(AttachmentTest, serves_the_device_only_while_it_exists) {
  int left = -1;
  {
    Engine engine;
    InProcessDevice attachment(engine);
    EXPECT_THROW(InProcessDevice second(engine), std::logic_error);
    left = Connected();
  }
  EXPECT_EQ((Results{Write(left), Open(O_RDWR)}), (Results{-ENODEV, -ENOENT}));
  // No new descriptor gets the old one's number, and the old mark means nothing to the next engine.
  Engine other;
  InProcessDevice attachment(other);
  EXPECT_NE(Connected(), left);
  EXPECT_EQ((Results{Read(left), close(left)}), (Results{-ENODEV, 0}));
  EXPECT_EQ(other.Count(Operation::kClose), 0u);
}

TEST(AttachmentTest, ends_after_the_calls_of_other_threads) {
  std::atomic<bool> ended{false};
  std::thread caller([&ended] {
    while (!ended) close(open(kDevice, O_RDWR));
  });
  for (int i = 0; i < 200; ++i) {
    Engine engine;
    const InProcessDevice attachment(engine);
    std::this_thread::yield();
  }
  ended = true;
  caller.join();
}

TEST(AttachmentTest, redirects_files) {
  const std::string file = "/tmp/attachment_test." + std::to_string(getpid());
  const char *const from = "/etc//vrel_registry.txt", *const to = "/data/./Marvoleth.log";
  Engine engine;
  InProcessDevice attachment(
      engine, {{"/etc/vrel_registry.txt", file}, {"/data/Marvoleth.log", file + ".log"}});
  struct stat status {};
  for (const bool first : {true, false}) {
    close(first ? creat(from, 0600) : openat(AT_FDCWD, from, O_CREAT, 0600));
    std::ofstream(from, std::ios::app) << "li";
    FILE* const reopened = freopen(from, "a", fopen("/dev/null", "r"));
    EXPECT_EQ(fputs("ne", reopened) + fclose(reopened), 1);
    EXPECT_EQ(first ? rename(from, to) : renameat(AT_FDCWD, from, AT_FDCWD, to), 0);
    EXPECT_EQ(first ? stat(to, &status) : lstat(to, &status), 0);
    EXPECT_EQ(status.st_size, 4);
    EXPECT_EQ(first ? access(to, R_OK) : faccessat(AT_FDCWD, to, R_OK, 0), 0);
    EXPECT_EQ(truncate(to, 0), 0);
    EXPECT_EQ(first ? unlink(to) : remove(to), 0);
  }
}

TEST(AttachmentTest, handles_libc_calls_and_system_calls) {
  Engine engine;
  InProcessDevice attachment(engine);
  constexpr int kKept = O_RDWR | O_APPEND | O_NONBLOCK;
  constexpr int kFlags = kKept | O_CLOEXEC | O_CREAT | O_TRUNC | O_NOCTTY;
  const char* const path = "/../dev/..//none/../dev/./zuli";
  const auto checkedRead = [](int device, void* to, long length) {
    return __read_chk(device, to, static_cast<std::size_t>(length), sizeof(buffer));
  };
  struct iovec pieces[3] = {{buffer, 20}, {buffer, 24}, {buffer, 20}};
  for (const bool direct : {false, true}) {
    const auto call = [direct](auto function, long number, auto... arguments) {
      return ResultOf(direct ? syscall(number, arguments...) : function(arguments...));
    };
    errno = 77;
    const int device = static_cast<int>(direct ? syscall(SYS_openat, AT_FDCWD, path, kFlags, 0640)
                                               : openat(AT_FDCWD, path, kFlags, 0640));
    EXPECT_EQ(engine.Records().back().openFlags, kFlags);
    EXPECT_EQ(engine.Records().back().openMode, 0640u);
    const Results flags = {fcntl(device, F_GETFD), fcntl(device, F_GETFL),
                           fcntl(device, F_SETFL, O_NONBLOCK), fcntl(device, F_GETFL)};
    EXPECT_EQ(flags, (Results{FD_CLOEXEC, kKept, 0, O_RDWR | O_NONBLOCK}));
    // A driver may keep the request in an int. The transfer of pieces ends at one that is short.
    const int request = static_cast<int>(kConnectRequest);
    Guid guid = DefaultClients()[0].guid;
    const Results exchanges = {call(ioctl, SYS_ioctl, device, request, guid.data()),
                               call(write, SYS_write, device, buffer, 16L),
                               call(checkedRead, SYS_read, device, buffer, 64L),
                               call(writev, SYS_writev, device, pieces, 2),
                               call(readv, SYS_readv, device, pieces + 1, 2)};
    EXPECT_EQ(exchanges, (Results{0, 16, 16, 44, 20}));
    EXPECT_EQ(engine.Requests("KALO").back().size(), 24u);
    EXPECT_TRUE(engine.Requests("FENU").empty());
    EXPECT_EQ(errno, 77) << "a call that succeeds does not change errno";
    // The second piece of one call fails, and the first of another.
    engine.AddFault({Operation::kWrite, ErrnoFault{EIO}, {2, 2}});
    EXPECT_EQ(call(writev, SYS_writev, device, pieces, 2), 20);
    EXPECT_EQ(call(writev, SYS_writev, device, pieces, 2), -EIO);

    struct stat seen[5] = {};
    EXPECT_EQ(stat(path, &seen[0]) + lstat(path, &seen[1]) + fstat(device, &seen[2]), 0);
    EXPECT_EQ(fstatat(device, "", &seen[3], AT_EMPTY_PATH), 0);
    EXPECT_EQ(fstatat(AT_FDCWD, path, &seen[4], 0), 0);
    for (const struct stat& one : seen) EXPECT_TRUE(S_ISCHR(one.st_mode));
    EXPECT_EQ(access(path, W_OK) + faccessat(AT_FDCWD, path, W_OK, AT_EACCESS), 0);
    EXPECT_EQ(ResultOf(fdopen(device, "r") == nullptr ? -1 : 0), -EOPNOTSUPP);
    EXPECT_EQ(call(close, SYS_close, device), 0);
    EXPECT_EQ(engine.OpenDescriptors(), 0u);
  }
  EXPECT_EQ(ResultOf(freopen(path, "r", stdin) == nullptr ? -1 : 0), -EOPNOTSUPP);
  EXPECT_EQ(ResultOf(syscall(SYS_openat, AT_FDCWD, nullptr, O_RDWR)), -EFAULT);
#ifdef SYS_open
  EXPECT_EQ(Write(static_cast<int>(syscall(SYS_open, path, O_WRONLY, 0600))), -ENOTCONN);
#endif
  const std::string tooLong = std::string(PATH_MAX - strlen(kDevice), '/') + kDevice;
  for (const char* other : {"/dev/zuli/", "/dev/zuli/.", "/dev/zuli/..", "/x/dev/zuli",
                            "/dev/xzuli", tooLong.c_str()}) {
    EXPECT_EQ(open(other, O_WRONLY), -1) << other;
  }
  // A number that was closed without the hooks no longer means the device. A failed open leaves no
  // descriptor, so the number is free.
  const int closed = Connected();
  reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"))(closed);
  engine.AddFault({Operation::kOpen, ErrnoFault{EACCES}});
  EXPECT_EQ((Results{Open(O_RDWR), open("/dev/null", O_RDWR), Read(closed)}),
            (Results{-EACCES, closed, 0}));
}

TEST(AttachmentTest, duplicates_share_one_open_file) {
  Engine engine;
  InProcessDevice attachment(engine);
  const int opened = Open(O_WRONLY);
  const Results writer = {dup3(opened, 90, O_CLOEXEC), close(opened), fcntl(90, F_GETFD), Read(90),
                          close(90)};
  EXPECT_EQ(writer, (Results{90, 0, FD_CLOEXEC, -EBADF, 0}));
  const int first = Connected();
  const int second = dup(first);
  const int third = fcntl(first, F_DUPFD_CLOEXEC, 100);
  const Results same = {dup2(first, first), ResultOf(dup3(first, first, 0)), fcntl(first, F_GETFD),
                        close(fcntl(first, F_DUPFD, 50)), close(first)};
  EXPECT_EQ(same, (Results{first, -EINVAL, 0, 0, 0}));
  EXPECT_EQ((Results{Write(third), Read(second)}), (Results{16, 16}));
  // dup2 can replace a descriptor of the device, and can replace another one by it.
  const int file = open("/dev/null", O_RDWR);
  const Results replaced = {dup2(file, second),       Read(second), dup2(third, file), Write(file),
                            ResultOf(dup2(-1, file)), close(third)};
  EXPECT_EQ(replaced, (Results{second, 0, file, 16, -EBADF, 0}));
  EXPECT_EQ(engine.Count(Operation::kWrite), 2u);
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
  const int path = Open(O_PATH), reader = Open(O_RDONLY | O_CREAT | O_CLOEXEC),
            writer = creat(kDevice, 0600);
  EXPECT_EQ((Results{Open(O_RDWR | O_CREAT | O_EXCL), Open(O_RDONLY | O_DIRECTORY)}),
            (Results{-EEXIST, -ENOTDIR}));
  const Results errors = {Read(path), Write(reader), Read(reader), Read(writer), Write(writer)};
  EXPECT_EQ(errors, (Results{-EBADF, -EBADF, -ENOTCONN, -EBADF, -ENOTCONN}));

  const int device = Connected();
  struct pollfd events = {device, POLLIN | POLLOUT, 0};
  EXPECT_EQ((Results{poll(&events, 1, 0), events.revents}), (Results{1, POLLIN | POLLOUT}));
  int on = 1, off = 0;
  const Results closedOnExec = {ioctl(device, FIOCLEX), fcntl(device, F_GETFD),
                                ioctl(device, FIONCLEX), fcntl(device, F_GETFD),
                                fcntl(reader, F_GETFD)};
  EXPECT_EQ(closedOnExec, (Results{0, FD_CLOEXEC, 0, 0, FD_CLOEXEC}));
  const auto control = [device](auto request, int* argument) {
    return ResultOf(ioctl(device, request, argument));
  };
  EXPECT_EQ((Results{control(kConnectRequest, nullptr), control(FIOASYNC, nullptr),
                     control(FIOASYNC, &on), control(FIOASYNC, &off), control(FIONBIO, &on)}),
            (Results{-EFAULT, -EFAULT, -ENOTTY, 0, 0}));
  EXPECT_EQ(fcntl(device, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
  EXPECT_EQ((Results{Write(device), Read(device), read(device, nullptr, 0)}),
            (Results{16, -EAGAIN, 0}));
  const std::vector<struct iovec> pieces(300, {buffer, 1});
  EXPECT_EQ(writev(device, pieces.data(), 300), piecesServed ? atoi(piecesServed) : 300);
  EXPECT_EQ(close(path) + close(reader) + close(writer) + close(device), 0);
}

TEST(EngineTest, refuses_wrong_options_and_survives_calls_from_a_responder) {
  Client tooLong;
  tooLong.maxMessageLength = kLongestMessage + 1;
  EXPECT_THROW(Engine({{tooLong}}), std::invalid_argument);
  Engine engine;
  EXPECT_THROW(engine.SetResponder("KAL0", nullptr), std::invalid_argument);
  EXPECT_THROW(engine.AddReply({}), std::invalid_argument);
  for (int error = 1; error <= EHWPOISON; ++error) {
    const char* const name = strerrorname_np(error);
    EXPECT_EQ(ErrnoName(error), name != nullptr ? name : std::to_string(error));
  }
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
  EXPECT_EQ((Results{Write(descriptor), Read(descriptor)}), (Results{16, -ENODEV}));
  EXPECT_EQ(engine.Records().at(2).why, "the client stays silent: stuck");
  SetCaller(7, 7);
  engine.Close(1, CloseReason::kProgramEnded);
  engine.Close(1, CloseReason::kProgramEnded);
  EXPECT_EQ(engine.Count(Operation::kClose), 1u);
  EXPECT_EQ(engine.Records().back().process, 0) << "the program did not close it";
}

}  // namespace
}  // namespace zulisim
