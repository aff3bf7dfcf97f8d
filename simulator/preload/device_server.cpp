#include "simulator/preload/device_server.h"

#include <poll.h>
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

// A program that is gone cannot be answered: a failure to send is none of the engine's.
void SendResponse(int socket, const Result& result, const Bytes& payload = {}) {
  const Response response{result.value, result.error, static_cast<std::uint32_t>(payload.size())};
  Bytes bytes(sizeof(response));
  std::memcpy(bytes.data(), &response, sizeof(response));
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  protocol::Send(socket, bytes.data(), bytes.size());
}

bool HasEnded(int socket) {
  struct pollfd entry {
    socket, POLLRDHUP, 0
  };
  return poll(&entry, 1, 0) == 1 && (entry.revents & (POLLHUP | POLLRDHUP | POLLERR)) != 0;
}

int Listen(const std::string& path) {
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), "the socket " + path);
  }
  std::strcpy(address.sun_path, path.c_str());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0 ||
      bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    const int error = errno;
    if (listener >= 0) close(listener);
    throw std::system_error(error, std::generic_category(), "the socket " + path);
  }
  return listener;
}

}  // namespace

DeviceServer::DeviceServer(Device& device, const std::string& path)
    : device_(device), path_(path), listener_(Listen(path)) {
  std::lock_guard<std::mutex> lock(mutex_);
  StartWorker();
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
  // A worker may wait in the device for a reply: with its connection gone, it returns. One that was
  // just opening gets a connection after that, which is released once all have ended.
  ReleaseAll();
  for (std::thread& worker : workers) worker.join();
  ReleaseAll();
  close(listener_);
  unlink(path_.c_str());
}

void DeviceServer::StartWorker() {
  ++idle_;
  workers_.emplace_back([this] { Work(); });
}

void DeviceServer::Work() {
  while (true) {
    const int channel = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int error = errno;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      // The destructor shuts down the channels that it knows; this one it may have missed.
      if (stopping_) {
        if (channel >= 0) close(channel);
        return;
      }
      if (channel < 0) {
        if (error == EINTR || error == ECONNABORTED) continue;
        return;
      }
      channels_.insert(channel);
      // A slow client must not hold up the others: somebody always waits for the next exchange.
      if (--idle_ == 0) StartWorker();
    }
    const bool kept = Serve(channel);
    std::lock_guard<std::mutex> lock(mutex_);
    // A channel that an open has kept may be closed by now, and its number another worker's.
    if (!kept) {
      channels_.erase(channel);
      close(channel);
    }
    ++idle_;
  }
}

bool DeviceServer::Serve(int channel) {
  Request request;
  if (protocol::Receive(channel, &request, sizeof(request)) != 0 ||
      request.payload > kLongestMessage) {
    return false;
  }
  Bytes payload(request.payload);
  if (protocol::Receive(channel, payload.data(), payload.size()) != 0) return false;
  // What a program closed by its end comes before what another does after that.
  ReleaseEnded();
  SetCaller(request.process, request.thread);
  switch (request.kind) {
    case Kind::kHello:
      ++attached_;
      SendResponse(channel, {});
      break;
    case Kind::kOpen:
      return Open(channel, request);
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
  return false;
}

bool DeviceServer::Open(int channel, const Request& request) {
  const Result result = device_.Open(request.flags, request.mode, request.descriptor);
  if (result.value == -1) {
    SendResponse(channel, result);
    return false;
  }
  // Under the lock, or the channel could be closed as ended while the answer is on its way. It is
  // the first on a fresh socket and never has to wait.
  std::lock_guard<std::mutex> lock(mutex_);
  channels_.erase(channel);
  tokens_[request.inode] = {channel, static_cast<std::uint64_t>(result.value), false};
  SendResponse(channel, result);
  return true;
}

void DeviceServer::Ioctl(int channel, const Request& request, Bytes payload) {
  payload.resize(IoctlSize(request.request));
  void* argument = request.hasBuffer != 0 ? payload.data() : nullptr;
  const Result result = device_.Ioctl(ConnectionOf(request.inode), request.request, argument);
  SendResponse(channel, result, argument != nullptr ? payload : Bytes());
}

void DeviceServer::Read(int channel, const Request& request) {
  Bytes buffer(std::min<std::uint64_t>(request.length, kLongestMessage));
  void* target = request.hasBuffer != 0 ? buffer.data() : nullptr;
  const Result result = device_.Read(ConnectionOf(request.inode), target, buffer.size());
  buffer.resize(result.value > 0 ? static_cast<std::size_t>(result.value) : 0);
  SendResponse(channel, result, buffer);
}

void DeviceServer::Write(int channel, const Request& request, const Bytes& payload) {
  const bool whole = payload.size() == std::min<std::uint64_t>(request.length, kLongestMessage);
  const void* source = request.hasBuffer != 0 && whole ? payload.data() : nullptr;
  SendResponse(channel, device_.Write(ConnectionOf(request.inode), source, request.length));
}

void DeviceServer::Close(int channel, const Request& request) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tokens_.find(request.inode);
    if (found == tokens_.end()) return;
    // From here on no other worker takes the end of the descriptor for the end of its program.
    found->second.closing = true;
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
    found->second.closing = false;
    if (!HasEnded(found->second.socket)) return {};
    connection = found->second.connection;
    close(found->second.socket);
    tokens_.erase(found);
  }
  return device_.Close(connection);
}

void DeviceServer::ReleaseEnded() {
  std::set<std::uint64_t> ended;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto entry = tokens_.begin(); entry != tokens_.end();) {
      const Token& token = entry->second;
      if (token.closing || !HasEnded(token.socket)) {
        ++entry;
        continue;
      }
      ended.insert(token.connection);
      close(token.socket);
      entry = tokens_.erase(entry);
    }
  }
  for (const std::uint64_t connection : ended) device_.Release(connection);
}

void DeviceServer::ReleaseAll() {
  std::map<std::uint64_t, Token> tokens;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    tokens.swap(tokens_);
  }
  for (const auto& [inode, token] : tokens) {
    close(token.socket);
    device_.Release(token.connection);
  }
}

std::uint64_t DeviceServer::ConnectionOf(std::uint64_t inode) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tokens_.find(inode);
  return found == tokens_.end() ? 0 : found->second.connection;
}

}  // namespace zulisim
