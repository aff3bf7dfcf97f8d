// Tests the threads of the kernel server without a mount: the test plays the kernel and uses the
// FUSE protocol over a socket pair.

#include "simulator/kernel/kernel_server.h"

#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "simulator/engine/engine.h"

namespace zulisim {
namespace {

template <typename T>
Bytes BytesOf(const T& value) {
  return Copied(&value, sizeof(value));
}

// Plays the kernel: sends requests from any thread and waits for their replies.
class Kernel {
 public:
  Kernel() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0);
    Send(FUSE_INIT, BytesOf(fuse_init_in{FUSE_KERNEL_VERSION, 31, 0, 0, 0, {}}));
    receiver_ = std::thread([this] { Receive(); });
  }
  // Destroy it after the server, which closes its end of the socket pair.
  ~Kernel() {
    receiver_.join();
    close(ends_[0]);
  }
  std::string path() const { return "/dev/fd/" + std::to_string(ends_[1]); }

  // Returns the number of the request.
  std::uint64_t Send(std::uint32_t opcode, const Bytes& body, pid_t thread = 0) {
    std::lock_guard<std::mutex> lock(mutex_);
    fuse_in_header header{};
    header.len = static_cast<std::uint32_t>(sizeof(header) + body.size());
    header.opcode = opcode;
    header.unique = ++requests_;
    header.nodeid = FUSE_ROOT_ID;
    header.pid = static_cast<std::uint32_t>(thread);
    Bytes message = BytesOf(header);
    message.insert(message.end(), body.begin(), body.end());
    EXPECT_EQ(send(ends_[0], message.data(), message.size(), 0),
              static_cast<ssize_t>(message.size()));
    return header.unique;
  }
  // Returns the reply, which is a negative errno or bytes.
  std::pair<int, Bytes> Await(std::uint64_t request) {
    std::unique_lock<std::mutex> lock(mutex_);
    arrived_.wait(lock, [&] { return replies_.count(request) > 0; });
    return replies_[request];
  }
  std::pair<int, Bytes> Ask(std::uint32_t opcode, const Bytes& body) {
    return Await(Send(opcode, body));
  }

 private:
  void Receive() {
    Bytes message(1 << 16);
    ssize_t size = 0;
    while ((size = recv(ends_[0], message.data(), message.size(), 0)) > 0) {
      fuse_out_header header;
      std::memcpy(&header, message.data(), sizeof(header));
      std::lock_guard<std::mutex> lock(mutex_);
      const bool first =
          replies_
              .try_emplace(header.unique, header.error,
                           Bytes(message.begin() + sizeof(header), message.begin() + size))
              .second;
      EXPECT_TRUE(first) << "two replies to one request";
      arrived_.notify_all();
    }
  }

  int ends_[2];
  std::mutex mutex_;  // guards the members below
  std::condition_variable arrived_;
  std::uint64_t requests_ = 0;
  std::map<std::uint64_t, std::pair<int, Bytes>> replies_;
  std::thread receiver_;
};

// An open file of a program.
class File {
 public:
  File(Kernel& kernel, int client) : kernel_(kernel) {
    const Bytes answer = kernel.Ask(FUSE_OPEN, BytesOf(fuse_open_in{})).second;
    std::memcpy(&handle_, answer.data(), sizeof(handle_));
    Bytes body = BytesOf(fuse_ioctl_in{handle_, 0, kConnectRequest, 1, 16, 16});
    const Guid guid = DefaultClients()[static_cast<std::size_t>(client)].guid;
    body.insert(body.end(), guid.begin(), guid.end());
    EXPECT_EQ(kernel.Ask(FUSE_IOCTL, body).first, 0);
  }
  void Write(std::uint32_t size) {
    Bytes body = BytesOf(fuse_write_in{handle_, 0, size, 0, 0, 0, 0});
    body.resize(body.size() + size);
    EXPECT_EQ(kernel_.Ask(FUSE_WRITE, body).first, 0);
  }
  std::uint64_t BeginRead(pid_t thread = 0) {
    return kernel_.Send(FUSE_READ, BytesOf(fuse_read_in{handle_, 0, 4096, 0, 0, 0, 0}), thread);
  }
  int Close() {
    return kernel_.Ask(FUSE_RELEASE, BytesOf(fuse_release_in{handle_, 0, 0, 0})).first;
  }

 private:
  Kernel& kernel_;
  std::uint64_t handle_ = 0;
};

class KernelServerTest : public testing::Test {
 protected:
  KernelServerTest() {
    ReplyRule slow;
    slow.client = "FENU";
    slow.latency = std::chrono::minutes(1);
    engine_.AddReply(slow);
    server_ =
        std::make_unique<KernelServer>(engine_, KernelServer::Kind::kFile, kernel_.path(), true);
  }

  Engine engine_;
  Kernel kernel_;
  std::unique_ptr<KernelServer> server_;
};

TEST_F(KernelServerTest, serves_threads_while_reads_wait_and_ends_the_reads) {
  File slow(kernel_, 1);
  slow.Write(20);
  const std::uint64_t waiting = slow.BeginRead();
  std::vector<std::thread> programs;
  for (std::uint32_t size = 20; size < 28; ++size) {
    programs.emplace_back([this, size] {
      for (int round = 0; round < 20; ++round) {
        File file(kernel_, 0);
        file.Write(size);
        EXPECT_EQ(kernel_.Await(file.BeginRead()).second.size(), size);
        EXPECT_EQ(file.Close(), 0);
      }
    });
  }
  for (std::thread& program : programs) program.join();
  server_.reset();
  EXPECT_EQ(kernel_.Await(waiting).first, -ENODEV);
  EXPECT_EQ(engine_.OpenDescriptors(), 0u);
}

TEST_F(KernelServerTest, answers_the_read_of_a_program_that_a_signal_is_about_to_end) {
  const pid_t child = fork();
  if (child == 0) {
    raise(SIGSTOP);
    _exit(0);
  }
  waitpid(child, nullptr, WUNTRACED);
  kill(child, SIGTERM);  // pending while the child is stopped
  File file(kernel_, 1);
  file.Write(20);
  const std::uint64_t other = file.BeginRead(getpid());
  EXPECT_EQ(kernel_.Await(file.BeginRead(child)).first, -EINTR);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(kernel_.Await(other).first, -EBADF);
  server_.reset();
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

}  // namespace
}  // namespace zulisim
