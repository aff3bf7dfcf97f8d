#include "simulator/preload/device_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

#include "common/text.h"

namespace zulisim {
namespace {

using protocol::Kind;
using protocol::Message;

int Listen(const std::string& path) {
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  const bool fits = path.copy(address.sun_path, sizeof(address.sun_path) - 1) == path.size();
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  errno = fits ? errno : ENAMETOOLONG;
  if (!fits || listener < 0 ||
      bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    const std::error_code error(errno, std::generic_category());
    close(listener);
    throw std::system_error(error, "cannot create the socket " + common::Quoted(path));
  }
  return listener;
}

// The kernel assigns the lowest free number, so a high number means that few descriptors are left.
// The server reserves those: it needs them to open the device, and to accept a channel before
// refusing it.
bool IsScarce(int descriptor) {
  constexpr rlim_t kSpare = 4;
  struct rlimit limit;
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
         static_cast<rlim_t>(descriptor) + kSpare >= limit.rlim_cur;
}

// Moves this thread to the processor of the caller, which sleeps until the response arrives.
// Between two processors, the wake-ups of an exchange would take several times as long as the rest
// of it.
void MoveTo(int processor) {
  thread_local int current = -1;
  if (processor == current) return;
  current = processor;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  sched_setaffinity(0, sizeof(set), &set);
}

short Events(int socket) {
  struct pollfd entry = {socket, POLLIN, 0};
  return poll(&entry, 1, 0) == 1 ? entry.revents : short{0};
}

}  // namespace

DeviceServer::DeviceServer(Device& device, const std::string& path)
    : device_(device),
      path_(path),
      listener_(Listen(path)),
      acceptor_([this] { AcceptChannels(); }) {}

DeviceServer::~DeviceServer() {
  std::unique_lock<std::mutex> lock(mutex_);
  stopping_ = true;
  shutdown(listener_, SHUT_RDWR);
  for (const int channel : channels_) shutdown(channel, SHUT_RDWR);
  lock.unlock();
  // Threads may be waiting in the device for a reply; closing the connections ends these waits. A
  // thread that is in an open may add a connection after that, so all connections are closed again
  // at the end.
  CloseAbandoned();
  acceptor_.join();
  lock.lock();
  channelEnded_.wait(lock, [this] { return channels_.empty(); });
  lock.unlock();
  CloseAbandoned();
  close(listener_);
  unlink(path_.c_str());
}

// --- Channels. ---

void DeviceServer::AcceptChannels() {
  while (true) {
    const int channel = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    std::unique_lock<std::mutex> lock(mutex_);
    if (stopping_) {
      if (channel >= 0) close(channel);
      return;
    }
    try {
      if (channel < 0 || IsScarce(channel)) {
        throw std::system_error(EMFILE, std::generic_category());
      }
      std::thread([this, channel] { ServeChannel(channel); }).detach();
      channels_.insert(channel);
    } catch (const std::system_error&) {
      lock.unlock();
      Message refusal;
      refusal.value = -1;
      refusal.error = EMFILE;
      protocol::Send(channel, refusal, nullptr);
      close(channel);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));  // do not spin if it fails again
    }
  }
}

void DeviceServer::ServeChannel(int channel) {
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kLongestMessage]);
  while (ServeExchange(channel, buffer.get())) {
  }
  std::lock_guard<std::mutex> lock(mutex_);
  close(channel);
  channels_.erase(channel);
  channelEnded_.notify_all();
}

bool DeviceServer::ServeExchange(int channel, unsigned char* buffer) {
  Message message;
  if (protocol::Receive(channel, &message, buffer, kLongestMessage) != 0) return false;
  MoveTo(message.processor);
  CloseAbandoned();
  SetCaller(message.process, message.thread);
  const Result result = Perform(channel, &message, buffer);
  message.value = result.value;
  message.error = result.error;
  protocol::Send(channel, message, buffer);  // ignore a failure: the program may have ended
  if (message.kind != Kind::kOpen) return true;
  // Shut the socket down, so that a read that bypasses the hooks gets the response and then the end
  // of the stream instead of waiting.
  shutdown(channel, SHUT_WR);
  return false;
}

Result DeviceServer::Perform(int channel, Message* message, unsigned char* buffer) {
  const std::uint64_t connection = message->connection;
  constexpr std::uint64_t kMost = kLongestMessage;
  Result result;
  switch (message->kind) {
    case Kind::kLoaded:
      loaded_ = true;
      return {};
    case Kind::kOpen:
      return Open(channel, *message);
    case Kind::kIoctl:
      return device_.Ioctl(connection, message->request, message->payload > 0 ? buffer : nullptr);
    case Kind::kRead:
      result = device_.Read(connection, buffer, std::min(message->length, kMost),
                            (message->flags & O_NONBLOCK) != 0);
      if (result.value > 0) message->payload = static_cast<std::uint32_t>(result.value);
      return result;
    case Kind::kWrite:
      message->payload = 0;
      return device_.Write(connection, buffer, message->length);
    case Kind::kClosing:
    case Kind::kClosed:
      return Close(connection, message->kind == Kind::kClosing);
  }
  return {-1, EPROTO};
}

// --- Descriptors. ---

Result DeviceServer::Open(int channel, const Message& request) {
  const int socket = fcntl(channel, F_DUPFD_CLOEXEC, 0);
  const Result result = socket < 0 || IsScarce(socket)
                            ? Result{-1, EMFILE}
                            : device_.Open(request.flags, request.mode, request.descriptor);
  if (result.value == -1) {
    close(socket);
    return result;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  descriptors_[static_cast<std::uint64_t>(result.value)].socket = socket;
  return result;
}

Result DeviceServer::Close(std::uint64_t connection, bool begins) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = descriptors_.find(connection);
    if (found == descriptors_.end()) return {};
    found->second.closes += begins ? 1 : -1;
    if (begins || (Events(found->second.socket) & POLLHUP) == 0) return {};
    Forget(found);
  }
  return device_.Close(connection, CloseReason::kProgramClosed);
}

void DeviceServer::CloseAbandoned() {
  std::lock_guard<std::mutex> closing(closing_);
  std::vector<std::uint64_t> abandoned;
  CloseReason reason = CloseReason::kProgramEnded;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    // A program may have ended only because its calls failed at the end of the service.
    if (stopping_) reason = CloseReason::kServiceEnded;
    for (auto next = descriptors_.begin(); next != descriptors_.end();) {
      const auto descriptor = next++;
      const int socket = descriptor->second.socket;
      const short events = Events(socket);
      char byte;
      if (events != 0 && recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0) bypassed_ = true;
      const bool isAbandoned = (events & POLLHUP) != 0 && descriptor->second.closes == 0;
      if (!isAbandoned && !stopping_) continue;
      abandoned.push_back(descriptor->first);
      Forget(descriptor);
    }
  }
  for (const std::uint64_t connection : abandoned) device_.Close(connection, reason);
}

void DeviceServer::Forget(Descriptors::iterator descriptor) {
  close(descriptor->second.socket);
  descriptors_.erase(descriptor);
}

}  // namespace zulisim
