#include "simulator/preload/device_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace zulisim {

namespace {

using protocol::Kind;
using protocol::Request;
using protocol::Response;
using protocol::Then;
using std::chrono::nanoseconds;

constexpr std::chrono::milliseconds kQueueFull{1};  // until a program's packets are looked at again

// A program that is gone cannot be answered: a failure to send is none of the engine's.
void SendResponse(int socket, const Result& result, const Bytes& payload = {},
                  Then then = Then::kNothing) {
  Response response;
  response.value = result.value;
  response.error = result.error;
  response.payload = static_cast<std::uint32_t>(payload.size());
  response.then = then;
  protocol::Send(socket, &response, sizeof(response), payload.data(), payload.size());
}

void SendPacket(int socket, const Bytes& bytes) {
  send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool Shows(int socket, short event, int timeout = 0) {
  struct pollfd entry {
    socket, event, 0
  };
  return poll(&entry, 1, timeout) == 1 && (entry.revents & (event | POLLHUP | POLLERR)) != 0;
}

std::system_error Failure(const std::string& what) {
  return std::system_error(errno, std::generic_category(), what);
}

int Listen(const std::string& path) {
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), "the socket " + path);
  }
  std::strcpy(address.sun_path, path.c_str());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listener < 0 ||
      bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    const std::system_error failure = Failure("the socket " + path);
    if (listener >= 0) close(listener);
    throw failure;
  }
  return listener;
}

int SpareDescriptor() { return open("/dev/null", O_RDWR | O_CLOEXEC); }

bool Register(int events, int socket, std::uint64_t inode) {
  struct epoll_event event {};
  event.events = EPOLLIN;
  event.data.u64 = inode;
  return epoll_ctl(events, EPOLL_CTL_ADD, socket, &event) == 0;
}

}  // namespace

DeviceServer::DeviceServer(Device& device, const std::string& path)
    : device_(device),
      path_(path),
      listener_(Listen(path)),
      events_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      spare_(SpareDescriptor()) {
  if (events_ < 0 || wake_ < 0 || spare_ < 0 || !Register(events_, wake_, 0)) {
    throw Failure("the service of the device");
  }
  std::lock_guard<std::mutex> lock(mutex_);
  if (!StartWorker()) throw Failure("a thread to serve the device");
  watcher_ = std::thread([this] { Watch(); });
}

DeviceServer::~DeviceServer() {
  std::vector<std::thread> workers;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    for (const int channel : channels_) shutdown(channel, SHUT_RDWR);
    workers.swap(workers_);
  }
  eventfd_write(wake_, 1);
  // A thread may wait in the device for a reply: with its connection gone, it returns. A worker
  // that was just opening gets a connection after that, which is released once all have ended.
  ReleaseAll();
  watcher_.join();
  for (std::thread& worker : workers) worker.join();
  ReleaseAll();
  for (const int descriptor : {listener_, events_, wake_, spare_}) close(descriptor);
  unlink(path_.c_str());
}

// --- Channels. ---

// With the lock held. False when there can be no more threads.
bool DeviceServer::StartWorker() {
  try {
    workers_.emplace_back([this] { Work(); });
  } catch (const std::system_error&) {
    return false;
  }
  ++idle_;
  return true;
}

int DeviceServer::Accept() {
  while (true) {
    // The kernel looks for a free descriptor before it looks for a channel.
    Shows(listener_, POLLIN, -1);
    const int channel = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (channel >= 0) return channel;
    const bool full = errno == EMFILE || errno == ENFILE;
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return -1;
    if (!full) continue;
    close(spare_);
    const int refused = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (refused >= 0) {
      SendResponse(refused, {-1, EMFILE}, {}, Then::kDropChannel);
      close(refused);
    }
    spare_ = SpareDescriptor();
  }
}

void DeviceServer::Work() {
  while (true) {
    const int channel = Accept();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      // The destructor shuts down the channels that it knows; this one it may have missed.
      if (stopping_) {
        if (channel >= 0) close(channel);
        return;
      }
      // A slow client must not hold up the others: somebody always waits for the next channel.
      if (idle_ == 1 && !StartWorker()) {
        SendResponse(channel, {-1, EAGAIN}, {}, Then::kDropChannel);
        close(channel);
        continue;
      }
      --idle_;
      channels_.insert(channel);
    }
    protocol::Patience patience;
    while (Serve(channel, &patience)) {
    }
    std::lock_guard<std::mutex> lock(mutex_);
    channels_.erase(channel);
    close(channel);
    ++idle_;
  }
}

bool DeviceServer::Serve(int channel, protocol::Patience* patience) {
  Request request;
  Bytes payload(4096);
  std::size_t come = 0;
  int passed = -1;
  if (protocol::ReceiveHead(channel, &request, sizeof(request), payload.data(), payload.size(),
                            &come, patience, &passed) != 0) {
    return false;
  }
  payload.resize(std::min<std::uint64_t>(request.payload, kLongestMessage));
  if (payload.size() != request.payload || come > payload.size() ||
      protocol::Receive(channel, payload.data() + come, payload.size() - come) != 0) {
    if (passed >= 0) close(passed);
    return false;
  }
  // What a program closed by its end comes before what another does after that.
  AttendDescriptors();
  SetCaller(request.process, request.thread);
  switch (request.kind) {
    case Kind::kHello:
      ++attached_;
      SendResponse(channel, {});
      break;
    case Kind::kAdopt: {
      std::lock_guard<std::mutex> lock(mutex_);
      const auto found = tokens_.find(request.inode);
      SendResponse(channel,
                   found == tokens_.end() ? Result{-1, ENOENT} : Result{found->second.flags, 0});
      break;
    }
    case Kind::kOpen:
      Open(channel, request, passed);
      break;
    case Kind::kIoctl:
      Ioctl(channel, request, std::move(payload));
      break;
    case Kind::kRead:
      Read(channel, request);
      break;
    case Kind::kWrite:
      Write(channel, request, payload);
      break;
    case Kind::kClose:
      Close(channel, request);
      break;
  }
  return true;
}

void DeviceServer::Open(int channel, const Request& request, int socket) {
  // Without a socket, we have run into our limit, which is the program's own.
  if (socket < 0) return SendResponse(channel, {-1, EMFILE});
  const Result result = device_.Open(request.flags, request.mode, request.descriptor);
  if (result.value == -1) {
    close(socket);
  } else {
    std::lock_guard<std::mutex> lock(mutex_);
    Token& token = tokens_[request.inode];
    token.socket = socket;
    token.connection = static_cast<std::uint64_t>(result.value);
    token.flags = request.flags;
    Register(events_, socket, request.inode);
  }
  SendResponse(channel, result);
}

void DeviceServer::Ioctl(int channel, const Request& request, Bytes payload) {
  payload.resize(IoctlSize(request.request));
  void* argument = request.hasBuffer != 0 ? payload.data() : nullptr;
  const Result result = device_.Ioctl(ConnectionOf(request.inode), request.request, argument);
  ShowReadiness();
  SendResponse(channel, result, argument != nullptr ? payload : Bytes());
}

void DeviceServer::Read(int channel, const Request& request) {
  std::uint64_t connection = 0;
  bool nonBlocking = false;  // as opened
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(request.inode);
    if (found != tokens_.end()) {
      connection = found->second.connection;
      nonBlocking = (found->second.flags & O_NONBLOCK) != 0;
    }
    if (found != tokens_.end() && found->second.bypassed) {
      return SendResponse(channel, {}, {}, Then::kTakePacket);
    }
  }
  Bytes buffer(std::min<std::uint64_t>(request.length, kLongestMessage));
  void* target = request.hasBuffer != 0 ? buffer.data() : nullptr;
  const Result result = device_.Read(connection, target, buffer.size(), nonBlocking);
  buffer.resize(result.value > 0 ? static_cast<std::size_t>(result.value) : 0);
  Then then = Then::kNothing;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(request.inode);
    const auto readable = device_.ReadableAt(connection);
    if (found != tokens_.end() && found->second.readable && (!readable || *readable > Now())) {
      found->second.readable = false;
      then = Then::kDiscardPacket;
    }
  }
  ShowReadiness();
  SendResponse(channel, result, buffer, then);
}

void DeviceServer::Write(int channel, const Request& request, const Bytes& payload) {
  const bool whole = payload.size() == std::min<std::uint64_t>(request.length, kLongestMessage);
  const void* source = request.hasBuffer != 0 && whole ? payload.data() : nullptr;
  const Result result = device_.Write(ConnectionOf(request.inode), source, request.length);
  if (result.value != -1) AwaitAnswer(request.inode, true);
  ShowReadiness();
  SendResponse(channel, result);
}

void DeviceServer::Close(int channel, const Request& request) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(request.inode);
    if (found == tokens_.end()) return SendResponse(channel, {-1, EBADF});
    // From here on nobody takes the end of the descriptor for the end of its program.
    epoll_ctl(events_, EPOLL_CTL_DEL, found->second.socket, nullptr);
  }
  SendResponse(channel, {});
  char closed;
  const bool told = protocol::Receive(channel, &closed, sizeof(closed)) == 0;
  const Result result = FinishClose(request.inode);
  if (told) SendResponse(channel, result);
}

// Closes the connection unless another process still holds the descriptor.
Result DeviceServer::FinishClose(std::uint64_t inode) {
  std::uint64_t connection = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(inode);
    if (found == tokens_.end()) return {};
    if (!Shows(found->second.socket, POLLHUP)) {
      Register(events_, found->second.socket, inode);
      return {};
    }
    connection = found->second.connection;
    Forget(found);
  }
  return device_.Close(connection, CloseReason::kProgramClosed);
}

std::uint64_t DeviceServer::ConnectionOf(std::uint64_t inode) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tokens_.find(inode);
  return found == tokens_.end() ? 0 : found->second.connection;
}

// --- Descriptors. ---

void DeviceServer::Watch() {
  while (true) {
    int timeout = -1;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopping_) return;
      if (due_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due_ - Now()).count();
        timeout = static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
      }
    }
    struct epoll_event event {};
    epoll_wait(events_, &event, 1, timeout);
    eventfd_t ignored;
    eventfd_read(wake_, &ignored);
    AttendDescriptors();
    ReadAhead();
    ShowReadiness();
  }
}

void DeviceServer::AttendDescriptors() {
  std::lock_guard<std::mutex> attending(attending_);
  struct epoll_event events[16];
  for (int count = 16; count == 16;) {
    count = epoll_wait(events_, events, 16, 0);
    for (int i = 0; i < count; ++i) {
      if (events[i].data.u64 != 0) Attend(events[i].data.u64, (events[i].events & EPOLLHUP) != 0);
    }
  }
}

void DeviceServer::Attend(std::uint64_t inode, bool ended) {
  while (true) {
    std::uint64_t connection = 0;
    ssize_t size = 0;
    CloseReason reason = CloseReason::kProgramEnded;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopping_)
        reason = CloseReason::kServiceEnded;  // and the program gives up for lack of it
      const auto found = tokens_.find(inode);
      if (found == tokens_.end()) return;
      connection = found->second.connection;
      size = recv(found->second.socket, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
      if (size == 0 && !ended) recv(found->second.socket, nullptr, 0, MSG_DONTWAIT);
      if (size <= 0 && !ended) return;  // nothing, or a write of nothing
      if (size <= 0) Forget(found);
    }
    if (size <= 0) {
      device_.Close(connection, reason);
      return;
    }
    TakePacket(inode, static_cast<std::size_t>(size));
  }
}

void DeviceServer::TakePacket(std::uint64_t inode, std::size_t size) {
  Bytes packet(size);
  std::uint64_t connection = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(inode);
    if (found == tokens_.end()) return;
    recv(found->second.socket, packet.data(), packet.size(), MSG_DONTWAIT);
    found->second.bypassed = true;
    connection = found->second.connection;
  }
  const Result result = device_.Write(connection, packet.data(), packet.size());
  AwaitAnswer(inode, result.value != -1);
}

void DeviceServer::AwaitAnswer(std::uint64_t inode, bool comes) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tokens_.find(inode);
  if (found == tokens_.end() || !found->second.bypassed) return;
  if (comes && device_.ReadableAt(found->second.connection)) {
    ++found->second.unanswered;
    eventfd_write(wake_, 1);
  } else {
    SendPacket(found->second.socket, {});  // nobody is to wait for what will not come
  }
}

void DeviceServer::ShowReadiness() {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto before = due_;
  due_ = std::nullopt;
  for (auto& [inode, token] : tokens_) {
    const auto next = ShowReadiness(&token);
    if (next && (!due_ || *next < *due_)) due_ = next;
  }
  if (due_ && (!before || *due_ < *before)) eventfd_write(wake_, 1);
}

std::optional<nanoseconds> DeviceServer::ShowReadiness(Token* token) {
  if (token->bypassed ? token->unanswered == 0 : token->readable) return std::nullopt;
  const auto readable = device_.ReadableAt(token->connection);
  if (token->bypassed && !Shows(token->socket, POLLOUT)) return Now() + kQueueFull;
  if (!readable || *readable > Now() || token->bypassed) return readable;
  token->readable = true;
  SendPacket(token->socket, {});
  return std::nullopt;
}

void DeviceServer::ReadAhead() {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ready;  // inodes and connections
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [inode, token] : tokens_) {
      if (token.unanswered == 0 || !Shows(token.socket, POLLOUT)) continue;
      const auto readable = device_.ReadableAt(token.connection);
      if (!readable || *readable > Now()) continue;
      --token.unanswered;
      ready.emplace_back(inode, token.connection);
    }
  }
  for (const auto& [inode, connection] : ready) {
    std::optional<nanoseconds> readable(0);
    while (readable && *readable <= Now()) {
      Bytes message(kLongestMessage);
      const Result result = device_.Read(connection, message.data(), message.size(), false);
      message.resize(result.value > 0 ? static_cast<std::size_t>(result.value) : 0);
      std::lock_guard<std::mutex> lock(mutex_);
      const auto found = tokens_.find(inode);
      if (found != tokens_.end()) SendPacket(found->second.socket, message);
      readable = result.value > 0 ? device_.ReadableAt(connection) : std::nullopt;
    }
  }
}

// Takes the token out.
void DeviceServer::Forget(Tokens::iterator token) {
  epoll_ctl(events_, EPOLL_CTL_DEL, token->second.socket, nullptr);
  close(token->second.socket);
  tokens_.erase(token);
}

void DeviceServer::ReleaseAll() {
  std::vector<std::uint64_t> connections;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    while (!tokens_.empty()) {
      connections.push_back(tokens_.begin()->second.connection);
      Forget(tokens_.begin());
    }
  }
  for (const std::uint64_t connection : connections)
    device_.Close(connection, CloseReason::kServiceEnded);
}

}  // namespace zulisim
