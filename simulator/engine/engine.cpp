#include "simulator/engine/engine.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace zulisim {
namespace {

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

}  // namespace

Engine::Engine(EngineOptions options)
    : clients_(std::move(options.clients)), keepRecords_(options.keepRecords) {
  for (const Client& client : clients_) {
    if (client.maxMessageLength <= kLongestMessage) continue;
    throw std::invalid_argument(client.name + "'s maximum message length of " +
                                std::to_string(client.maxMessageLength) + " is above " +
                                std::to_string(kLongestMessage));
  }
}

Result Engine::Open(int flags, unsigned mode, int descriptor) {
  std::lock_guard<std::mutex> lock(mutex_);
  Call call = Begin(Operation::kOpen, 0);
  call.record.openFlags = flags;
  call.record.openMode = mode;
  std::optional<Result> failure = PreventedByFault(&call);
  if (!failure && failingOpens_ > 0) {
    --failingOpens_;
    const std::string more = failingOpens_ == 0 ? "the next open succeeds"
                                                : std::to_string(failingOpens_) + " more fail";
    failure = Fail(&call, openError_, "the device is still lost; " + more);
  }
  if (failure) {
    carried_.clear();
    return *failure;
  }
  const std::uint64_t number = nextConnection_++;
  connections_[number].descriptor = descriptor;
  call.record.connection = number;
  call.record.descriptor = descriptor;
  Finish(&call, 0);
  return {static_cast<std::int64_t>(number), 0};
}

Result Engine::Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) {
  std::lock_guard<std::mutex> lock(mutex_);
  Call call = Begin(Operation::kIoctl, connection);
  call.record.request = request;
  if (const auto failure = Prevented(&call)) return *failure;
  if (request == kConnectRequest) return Connect(&call, argument);
  const auto handler = ioctls_.find(request);
  if (handler == ioctls_.end()) {
    return Fail(&call, ENOTTY, "the device does not know the request " + Hex(request));
  }
  const int error = handler->second(argument);
  return error == 0 ? Finish(&call, 0) : Fail(&call, error, "the request's handler refuses");
}

Result Engine::Connect(Call* call, void* record) {
  if (record == nullptr) return Fail(call, EFAULT, "the connect record is null or not readable");
  Connection* connection = call->connection;
  if (connection->client != nullptr)
    return Fail(call, EBUSY, "the descriptor is connected already");
  Guid guid;
  std::memcpy(guid.data(), record, guid.size());
  const auto client = std::find_if(clients_.begin(), clients_.end(),
                                   [&guid](const Client& c) { return c.guid == guid; });
  if (client == clients_.end()) {
    return Fail(call, ENOENT, "no client has the GUID " + GuidText(guid));
  }
  connection->client = &*client;
  connection->pending = TakeCarried(*client);
  Bytes out(guid.begin(), guid.end());
  SetWordAt(&out, 0, client->maxMessageLength);
  SetWordAt(&out, 4, client->protocolVersion);
  std::memcpy(record, out.data(), out.size());
  call->record.client = client->name;
  call->record.payload = Payload::kConnectRecord;
  call->record.bytes = std::move(out);
  return Finish(call, 0);
}

Result Engine::Read(std::uint64_t connection, void* buffer, std::size_t length) {
  std::unique_lock<std::mutex> lock(mutex_);
  Call call = Begin(Operation::kRead, connection);
  call.record.length = call.limit = length;
  if (const auto failure = PreventedTransfer(&call, buffer, length)) return *failure;
  if (length == 0) return Finish(&call, 0);
  if (const auto failure = AwaitMessage(&call, &lock)) return *failure;
  MessageQueue* pending = &call.connection->pending;
  const Message message = std::move(pending->front());
  pending->pop_front();
  changed_.notify_all();
  const std::size_t count = std::min(message.bytes.size(), call.limit);
  // A null source or an empty message leaves nothing to copy, and memcpy wants no null.
  if (count > 0) std::memcpy(buffer, message.bytes.data(), count);
  OperationRecord* record = &call.record;
  record->payload = message.payload;
  record->commandId = message.commandId;
  if (message.payload == Payload::kReply) record->status = WordAt(message.bytes, kStatusOffset);
  record->bytes.assign(message.bytes.begin(), message.bytes.begin() + static_cast<long>(count));
  if (count < message.bytes.size() && record->why.empty()) {
    record->why = "cut: the message has " + std::to_string(message.bytes.size()) + " bytes";
  }
  return Finish(&call, static_cast<std::int64_t>(count));
}

std::optional<Result> Engine::AwaitMessage(Call* call, std::unique_lock<std::mutex>* lock) {
  while (true) {
    const MessageQueue& pending = call->connection->pending;
    if (pending.empty()) return Fail(call, EAGAIN, "no message is pending");
    const auto ready = pending.front().ready;
    if (ready <= std::chrono::steady_clock::now()) return std::nullopt;
    changed_.wait_until(*lock, ready);
    const auto found = connections_.find(call->record.connection);
    call->connection = found == connections_.end() ? nullptr : &found->second;
    if (call->connection == nullptr) return Fail(call, EBADF, "closed while a read waited");
    if (call->connection->lost)
      return Fail(call, ENODEV, "the device was lost while a read waited");
  }
}

Result Engine::Write(std::uint64_t connection, const void* buffer, std::size_t length) {
  std::unique_lock<std::mutex> lock(mutex_);
  Call call = Begin(Operation::kWrite, connection);
  call.record.length = call.limit = length;
  if (const auto failure = PreventedTransfer(&call, buffer, length)) return *failure;
  const Client& client = *call.connection->client;
  if (length > client.maxMessageLength) {
    return Fail(&call, EMSGSIZE,
                "longer than " + client.name + "'s maximum of " +
                    std::to_string(client.maxMessageLength) + " bytes");
  }
  if (call.limit == 0) return Finish(&call, 0);
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  OperationRecord* record = &call.record;
  record->payload = Payload::kRequest;
  record->bytes.assign(bytes, bytes + call.limit);
  record->commandId = WordAt(record->bytes, kCommandIdOffset);
  const Responder responder = ResponderFor(client, record->commandId);

  // The connection may be closed or lost meanwhile: it is looked up again afterwards.
  lock.unlock();
  Reply reply;
  try {
    reply = responder ? responder(record->bytes) : EchoReply(record->bytes);
  } catch (const std::exception& e) {
    record->why = std::string("the client stays silent: ") + e.what();
  } catch (...) {
    record->why = "the client stays silent: its responder failed";
  }
  lock.lock();
  Queue(connection, reply, record->commandId);
  return Finish(&call, static_cast<std::int64_t>(call.limit));
}

Result Engine::Close(std::uint64_t connection) {
  std::lock_guard<std::mutex> lock(mutex_);
  return Close(connection, "");
}

void Engine::Release(std::uint64_t connection) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (connections_.count(connection) > 0) Close(connection, "the program ended without a close");
}

Result Engine::Close(std::uint64_t connection, std::string why) {
  Call call = Begin(Operation::kClose, connection);
  if (call.connection == nullptr) return Fail(&call, EBADF, "the connection is not open");
  connections_.erase(connection);
  call.connection = nullptr;
  changed_.notify_all();
  if (const auto failure = PreventedByFault(&call)) return *failure;
  if (call.record.why.empty()) call.record.why = std::move(why);
  return Finish(&call, 0);
}

void Engine::Lose(const DeviceLoss& loss) {
  carried_.clear();
  for (auto& [number, connection] : connections_) {
    if (connection.lost) continue;
    connection.lost = true;
    if (loss.keepReplies && !connection.pending.empty()) {
      carried_.emplace_back(connection.client, std::move(connection.pending));
    }
    connection.pending.clear();
  }
  failingOpens_ = loss.failingOpens;
  openError_ = loss.openError;
  changed_.notify_all();
}

Engine::MessageQueue Engine::TakeCarried(const Client& client) {
  const auto found = std::find_if(carried_.begin(), carried_.end(),
                                  [&client](const auto& entry) { return entry.first == &client; });
  if (found == carried_.end()) return {};
  MessageQueue queue = std::move(found->second);
  carried_.erase(found);
  return queue;
}

Responder Engine::ResponderFor(const Client& client, std::optional<std::uint32_t> command) const {
  auto found = command ? responders_.find({client.name, command}) : responders_.end();
  if (found == responders_.end()) found = responders_.find({client.name, std::nullopt});
  return found == responders_.end() ? Responder() : found->second;
}

void Engine::Queue(std::uint64_t connection, const Reply& reply,
                   std::optional<std::uint32_t> command) {
  const auto found = connections_.find(connection);
  if (found == connections_.end() || found->second.lost) return;
  MessageQueue* pending = &found->second.pending;
  const auto ready = std::chrono::steady_clock::now() + reply.latency;
  if (reply.message) pending->push_back({Payload::kReply, *reply.message, command, ready});
  if (reply.privateData) {
    pending->push_back({Payload::kPrivateData, *reply.privateData, command, ready});
  }
}

}  // namespace zulisim
