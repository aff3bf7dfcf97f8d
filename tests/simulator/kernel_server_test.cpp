// Tests the threads of the kernel server without a mount: the test plays the kernel and uses the
// FUSE protocol over a socket pair.

#include "simulator/kernel/kernel_server.h"

#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

#include "simulator/engine/engine.h"

namespace zulisim {
namespace {

template <typename T>
Bytes BytesOf(const T& value) {
  return Copied(&value, sizeof(value));
}

// Plays the kernel: sends requests and waits for their replies.
class Kernel {
 public:
  Kernel() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0);
    Send(FUSE_INIT, BytesOf(fuse_init_in{FUSE_KERNEL_VERSION, 31, 0, 0, 0, {}}));
  }
  ~Kernel() { close(ends_[0]); }
  std::string path() const { return "/dev/fd/" + std::to_string(ends_[1]); }

  // Returns the number of the request.
  std::uint64_t Send(std::uint32_t opcode, const Bytes& body) {
    fuse_in_header header{};
    header.len = static_cast<std::uint32_t>(sizeof(header) + body.size());
    header.opcode = opcode;
    header.unique = ++requests_;
    header.nodeid = FUSE_ROOT_ID;
    Bytes message = BytesOf(header);
    message.insert(message.end(), body.begin(), body.end());
    EXPECT_EQ(send(ends_[0], message.data(), message.size(), 0),
              static_cast<ssize_t>(message.size()));
    return header.unique;
  }
  // Returns the reply, which is a negative errno or bytes. Replies may arrive in any order.
  std::pair<int, Bytes> Await(std::uint64_t request) {
    while (replies_.count(request) == 0) {
      Bytes message(1 << 16);
      const ssize_t size = recv(ends_[0], message.data(), message.size(), 0);
      if (size <= 0) throw std::runtime_error("the server has ended without a reply");
      fuse_out_header header;
      std::memcpy(&header, message.data(), sizeof(header));
      const Bytes body(message.begin() + sizeof(header), message.begin() + size);
      EXPECT_TRUE(replies_.try_emplace(header.unique, header.error, body).second)
          << "two replies to one request";
    }
    return replies_[request];
  }
  std::pair<int, Bytes> Ask(std::uint32_t opcode, const Bytes& body) {
    return Await(Send(opcode, body));
  }

 private:
  int ends_[2];
  std::uint64_t requests_ = 0;
  std::map<std::uint64_t, std::pair<int, Bytes>> replies_;
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
  std::uint64_t BeginRead() {
    return kernel_.Send(FUSE_READ, BytesOf(fuse_read_in{handle_, 0, 4096, 0, 0, 0, 0}));
  }
  int Close() {
    return kernel_.Ask(FUSE_RELEASE, BytesOf(fuse_release_in{handle_, 0, 0, 0})).first;
  }

 private:
  Kernel& kernel_;
  std::uint64_t handle_ = 0;
};

TEST(KernelServerTest, serves_other_files_while_reads_wait_and_ends_the_reads) {
  ReplyRule slow;
  slow.client = "FENU";
  slow.latency = std::chrono::minutes(1);
  Engine engine;
  engine.AddReply(slow);
  Kernel kernel;
  auto server =
      std::make_unique<KernelServer>(engine, KernelServer::Kind::kFile, kernel.path(), true);
  File silent(kernel, 1);
  silent.Write(20);
  const std::uint64_t waiting = silent.BeginRead();
  for (int round = 0; round < 20; ++round) {
    std::vector<File> files;
    std::vector<std::uint64_t> reads;
    for (std::uint32_t number = 0; number < 8; ++number) {
      files.emplace_back(kernel, 0).Write(20 + number);
      reads.push_back(files[number].BeginRead());
    }
    for (std::size_t number = 0; number < 8; ++number) {
      EXPECT_EQ(kernel.Await(reads[number]).second.size(), 20 + number);
      EXPECT_EQ(files[number].Close(), 0);
    }
  }
  server.reset();
  EXPECT_EQ(kernel.Await(waiting).first, -ENODEV);
  EXPECT_EQ(engine.OpenDescriptors(), 0u);
}

}  // namespace
}  // namespace zulisim
