#include "simulator/engine/engine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

std::string Occurrence(const OperationRecord& record) {
  return common::Format("{} {}", OperationName(record.operation), record.occurrence);
}

// The private data is 00 11 22 and so on.
Reply FaultyReply(const ReplyFault& fault, const Bytes& request) {
  if (!fault.status) return {};
  Bytes privateData(kPrivateDataSize);
  for (std::size_t i = 0; i < privateData.size(); ++i) {
    privateData[i] = static_cast<std::uint8_t>(i * 0x11);
  }
  return EchoReply(request, *fault.status, privateData);
}

}  // namespace

Engine::Engine(EngineOptions options)
    : clients_(std::move(options.clients)), keepRecords_(options.keepRecords) {
  for (const Client& client : clients_) {
    if (client.maxMessageLength <= kLongestMessage) continue;
    throw std::invalid_argument(common::Format("{}'s maximum message length of {} is above {}",
                                               common::Printable(client.name),
                                               client.maxMessageLength, kLongestMessage));
  }
}

Result Engine::Perform(OperationRecord record, void* target) {
  constexpr bool (Engine::*kSteps[kOperationCount])(Task*) = {
      &Engine::PerformOpen, &Engine::PerformIoctl, &Engine::PerformRead, &Engine::PerformWrite,
      &Engine::PerformClose};
  std::unique_lock<std::mutex> lock(mutex_);
  Task task;
  task.target = target;
  task.lock = &lock;
  const auto found = connections_.find(record.connection);
  if (found != connections_.end()) {
    task.connection = &found->second;
    record.descriptor = found->second.descriptor;
    if (found->second.client != nullptr) record.client = found->second.client->name;
  }
  if (record.abandoned && task.connection == nullptr) return {};
  const auto operation = static_cast<std::size_t>(record.operation);
  record.occurrence = ++counts_[operation];
  task.record = std::move(record);
  (this->*kSteps[operation])(&task);
  task.record.sequence = nextSequence_++;
  task.record.end = Now();
  Notify(task.record);
  const Result result = task.record.ReturnValue();
  if (keepRecords_) records_.push_back(std::move(task.record));
  return result;
}

bool Engine::PerformOpen(Task* task) {
  bool opens = ApplyFault(task);
  if (opens && failingOpens_ > 0) {
    if (failingOpens_ != kForever) --failingOpens_;
    const std::string more = failingOpens_ == kForever ? "every open fails"
                             : failingOpens_ == 0
                                 ? "the next open succeeds"
                                 : common::Counted(failingOpens_, "more open") + " will fail";
    opens = Fail(task, openError_, "the device is still lost; " + more);
  }
  if (!opens) {
    keptReplies_.clear();
    return false;
  }
  task->record.connection = nextConnection_++;
  connections_[task->record.connection].descriptor = task->record.descriptor;
  return true;
}

bool Engine::PerformIoctl(Task* task) {
  OperationRecord* record = &task->record;
  record->output = record->input;
  if (!CheckDescriptor(task)) return false;
  if (record->IsConnect()) return PerformConnect(task);
  const auto handler = ioctls_.find(record->request);
  if (handler == ioctls_.end()) {
    return Fail(task, ENOTTY, "unknown ioctl request " + common::Hex(record->request));
  }
  const int error = handler->second(task->target);
  record->output = Copied(task->target, record->OutputSize());
  return error == 0 || Fail(task, error, "the handler of the request failed");
}

bool Engine::PerformConnect(Task* task) {
  OperationRecord* record = &task->record;
  if (!record->hasBuffer) {
    return Fail(task, EFAULT, "the connect record is null or not readable");
  }
  Connection* connection = task->connection;
  if (connection->client != nullptr) {
    return Fail(task, EBUSY, "the descriptor is already connected");
  }
  const Client* client = ClientOf(record->input);
  if (client == nullptr) {
    Guid guid;
    std::memcpy(guid.data(), record->input.data(), guid.size());
    return Fail(task, ENOENT, "no client has the GUID " + GuidText(guid));
  }
  connection->client = client;
  connection->pending = TakeKeptReplies(*client);
  SetWordAt(&record->output, 0, client->maxMessageLength);
  SetWordAt(&record->output, 4, client->protocolVersion);
  std::memcpy(task->target, record->output.data(), record->output.size());
  record->client = client->name;
  record->payload = Payload::kConnectRecord;
  return true;
}

const Client* Engine::ClientOf(const Bytes& connectRecord) const {
  const auto names = [&connectRecord](const Client& client) {
    return connectRecord.size() >= client.guid.size() &&
           std::equal(client.guid.begin(), client.guid.end(), connectRecord.begin());
  };
  const auto client = std::find_if(clients_.begin(), clients_.end(), names);
  return client == clients_.end() ? nullptr : &*client;
}

bool Engine::PerformRead(Task* task) {
  OperationRecord* record = &task->record;
  if (!CheckTransfer(task)) return false;
  if (record->length == 0) return true;
  if (!WaitForMessage(task)) return false;
  MessageQueue* pending = &task->connection->pending;
  const Message message = std::move(pending->front());
  pending->pop_front();
  const std::size_t count = TransferSize(task, message.bytes.size());
  // memcpy must not get a null pointer, even for 0 bytes.
  if (count > 0) std::memcpy(task->target, message.bytes.data(), count);
  record->payload = message.payload;
  record->commandId = message.commandId;
  if (message.payload == Payload::kReply) record->status = WordAt(message.bytes, kStatusOffset);
  record->output.assign(message.bytes.begin(), message.bytes.begin() + static_cast<long>(count));
  if (count < message.bytes.size() && record->why.empty()) {
    record->why = common::Format("cut: the message has {} bytes", message.bytes.size());
  }
  record->result = static_cast<std::int64_t>(count);
  return true;
}

bool Engine::WaitForMessage(Task* task) {
  while (true) {
    const MessageQueue& pending = task->connection->pending;
    if (pending.empty()) return Fail(task, EAGAIN, "no message is pending");
    const auto ready = pending.front().ready;
    const bool isHeld = pending.front().held;
    if (!isHeld && ready <= std::chrono::steady_clock::now()) return true;
    if (task->record.nonBlocking) {
      return Fail(task, EAGAIN, "the reply is not ready and the read is non-blocking");
    }
    if (isHeld) {
      changed_.wait(*task->lock);
    } else {
      changed_.wait_until(*task->lock, ready);
    }
    const auto found = connections_.find(task->record.connection);
    task->connection = found == connections_.end() ? nullptr : &found->second;
    if (task->connection == nullptr) return Fail(task, EBADF, "closed while a read waited");
    if (task->connection->lost)
      return Fail(task, ENODEV, "the device was lost while a read waited");
  }
}

bool Engine::PerformWrite(Task* task) {
  OperationRecord* record = &task->record;
  if (!CheckTransfer(task)) return false;
  const Client& client = *task->connection->client;
  if (record->length > client.maxMessageLength) {
    return Fail(task, EMSGSIZE,
                common::Format("longer than {}'s maximum of {} bytes", client.name,
                               client.maxMessageLength));
  }
  const std::size_t count = TransferSize(task, record->length);
  record->result = static_cast<std::int64_t>(count);
  if (count == 0) return true;
  record->payload = Payload::kRequest;
  const Bytes request = record->Message();
  record->commandId = WordAt(request, kCommandIdOffset);
  task->connection->lastCommand = record->commandId;
  std::optional<Reply> reply = replies_.Answer(client.name, request);
  if (task->replyFault) reply = FaultyReply(*task->replyFault, request);
  const auto found = responders_.find(client.name);
  if (!reply && found != responders_.end() && found->second) {
    const Responder responder = found->second;
    reply.emplace();
    // Meanwhile the connection may be closed or lost, so Queue looks it up again.
    task->lock->unlock();
    try {
      reply = responder(request);
    } catch (const std::exception& e) {
      record->why = std::string("the client stays silent: ") + e.what();
    } catch (...) {
      record->why = "the client stays silent: its responder failed";
    }
    task->lock->lock();
  }
  Queue(record->connection, reply ? *reply : EchoReply(request), record->commandId);
  return true;
}

bool Engine::PerformClose(Task* task) {
  if (task->connection == nullptr) return Fail(task, EBADF, "the connection is not open");
  connections_.erase(task->record.connection);
  task->connection = nullptr;
  changed_.notify_all();
  return ApplyFault(task);
}

void Engine::Lose(const DeviceLoss& loss) {
  keptReplies_.clear();
  for (auto& [number, connection] : connections_) {
    connection.lost = true;
    if (!loss.dropReplies && !connection.pending.empty()) {
      keptReplies_.emplace_back(connection.client, std::move(connection.pending));
    }
    connection.pending.clear();
  }
  failingOpens_ = loss.failingOpens;
  openError_ = loss.openError;
  changed_.notify_all();
}

Engine::MessageQueue Engine::TakeKeptReplies(const Client& client) {
  const auto found = std::find_if(keptReplies_.begin(), keptReplies_.end(),
                                  [&client](const auto& entry) { return entry.first == &client; });
  if (found == keptReplies_.end()) return {};
  MessageQueue queue = std::move(found->second);
  keptReplies_.erase(found);
  return queue;
}

void Engine::Queue(std::uint64_t connection, const Reply& reply,
                   std::optional<std::uint32_t> command) {
  const auto found = connections_.find(connection);
  if (found == connections_.end() || found->second.lost) return;
  MessageQueue* pending = &found->second.pending;
  const auto ready = std::chrono::steady_clock::now() + reply.latency;
  const auto add = [&](Payload payload, const std::optional<Bytes>& bytes) {
    if (bytes) pending->push_back({payload, *bytes, command, ready, reply.held});
  };
  add(Payload::kReply, reply.message);
  add(Payload::kPrivateData, reply.privateData);
}

// --- Steps of an operation. ---

bool Engine::Fail(Task* task, int error, std::string why) {
  task->record.result = -1;
  task->record.error = error;
  task->record.why = std::move(why);
  return false;
}

bool Engine::CheckDescriptor(Task* task) {
  if (task->connection == nullptr) return Fail(task, EBADF, "the connection is not open");
  if (!ApplyFault(task)) return false;
  return !task->connection->lost ||
         Fail(task, ENODEV, "the device was lost after this descriptor was opened");
}

FaultScope Engine::ScopeOf(const Task& task) const {
  const OperationRecord& record = task.record;
  FaultScope scope{record.client, std::nullopt, record.connection};
  if (record.IsConnect()) {
    const Client* client = ClientOf(record.input);
    if (client != nullptr) scope.client = client->name;
  } else if (record.operation == Operation::kWrite) {
    scope.command = WordAt(record.input, kCommandIdOffset);
  } else if (record.operation == Operation::kRead && task.connection != nullptr) {
    const Connection& connection = *task.connection;
    scope.command =
        connection.pending.empty() ? connection.lastCommand : connection.pending.front().commandId;
  }
  return scope;
}

bool Engine::ApplyFault(Task* task) {
  const Fault* fault = faults_.Next(task->record.operation, ScopeOf(*task));
  if (fault == nullptr) return true;
  if (const auto* errnoFault = std::get_if<ErrnoFault>(&fault->effect)) {
    return Fail(task, errnoFault->error, "fault at " + Occurrence(task->record));
  }
  if (const auto* loss = std::get_if<DeviceLoss>(&fault->effect)) {
    Lose(*loss);
    const std::string why = "the device is lost at " + Occurrence(task->record);
    if (task->record.operation != Operation::kClose) return Fail(task, ENODEV, why);
    task->record.why = why;
  }
  if (const auto* shortCount = std::get_if<ShortCount>(&fault->effect))
    task->shortCount = *shortCount;
  if (const auto* reply = std::get_if<ReplyFault>(&fault->effect)) {
    task->replyFault = *reply;
    task->record.why = (reply->status ? "refused by a fault at " : "no reply: a fault at ") +
                       Occurrence(task->record);
  }
  return true;
}

std::size_t Engine::TransferSize(Task* task, std::size_t size) {
  const std::size_t possible = std::min<std::uint64_t>(size, task->record.length);
  if (!task->shortCount) return possible;
  const std::size_t moved =
      std::min(possible, task->shortCount->half ? possible / 2 : task->shortCount->count);
  if (moved < possible) task->record.why = "cut by a fault at " + Occurrence(task->record);
  return moved;
}

bool Engine::CheckTransfer(Task* task) {
  if (!CheckDescriptor(task)) return false;
  if (task->connection->client == nullptr) {
    return Fail(task, ENOTCONN, "the descriptor is not connected to a client");
  }
  return task->record.hasBuffer || task->record.length == 0 ||
         Fail(task, EFAULT, "the buffer is null or not readable");
}

// --- Instructions and results. ---

const Client& Engine::ClientNamed(const std::string& name) const {
  std::vector<std::string> known;
  for (const Client& client : clients_) {
    if (client.name == name) return client;
    known.push_back(common::Printable(client.name));
  }
  throw std::invalid_argument("unknown client " + common::Quoted(name) + "; expected " +
                              common::Joined(known));
}

void Engine::SetResponder(const std::string& client, Responder responder) {
  ClientNamed(client);
  std::lock_guard<std::mutex> lock(mutex_);
  responders_[client] = std::move(responder);
}

void Engine::AddReply(const ReplyRule& rule) {
  ClientNamed(rule.client);
  std::lock_guard<std::mutex> lock(mutex_);
  replies_.Add(rule);
}

std::size_t Engine::ReleaseReplies() {
  std::lock_guard<std::mutex> lock(mutex_);
  std::size_t released = 0;
  const auto release = [&released](MessageQueue* queue) {
    for (Message& message : *queue) {
      if (message.held && message.payload == Payload::kReply) ++released;
      message.held = false;
    }
  };
  for (auto& [number, connection] : connections_) release(&connection.pending);
  for (auto& [client, queue] : keptReplies_) release(&queue);
  changed_.notify_all();
  return released;
}

void Engine::SetIoctl(std::uint32_t request, IoctlHandler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  ioctls_[request] = std::move(handler);
}

void Engine::AddFault(const Fault& fault) {
  if (!fault.scope.client.empty()) ClientNamed(fault.scope.client);
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.Add(fault);
}

void Engine::ClearFaults() {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.Clear();
  failingOpens_ = 0;
}

void Engine::LoseDevice(const DeviceLoss& loss) {
  std::lock_guard<std::mutex> lock(mutex_);
  Lose(loss);
}

void Engine::RestoreDevice() {
  std::lock_guard<std::mutex> lock(mutex_);
  failingOpens_ = 0;
}

void Engine::Announce(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  Notify(DeviceEvent{Now(), text});
}

std::uint64_t Engine::Count(Operation operation) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return counts_[static_cast<std::size_t>(operation)];
}

std::size_t Engine::OpenDescriptors() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return connections_.size();
}

std::vector<InstructionCount> Engine::InstructionCounts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<InstructionCount> counts;
  faults_.AddCounts(&counts);
  replies_.AddCounts(&counts);
  return counts;
}

std::vector<OperationRecord> Engine::Records() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return records_;
}

std::vector<Bytes> Engine::Requests(const std::string& client) const {
  ClientNamed(client);
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Bytes> requests;
  for (const OperationRecord& record : records_) {
    if (record.payload == Payload::kRequest && record.client == client) {
      requests.push_back(record.Message());
    }
  }
  return requests;
}

}  // namespace zulisim
