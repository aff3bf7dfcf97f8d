#include "simulator/device/operation_decoder.h"

#include <algorithm>

#include "simulator/engine/engine.h"

namespace zulisim {

void Narrator::Tell(const RawOperation& raw, int descriptor) {
  std::lock_guard<std::mutex> lock(mutex_);
  OperationRecord record;
  record.sequence = ++sequence_;
  record.occurrence = ++counts_[static_cast<std::size_t>(raw.operation)];
  record.operation = raw.operation;
  record.connection = raw.connection;
  record.openFlags = raw.flags;
  record.openMode = raw.mode;
  record.request = raw.request;
  record.length = raw.length;
  record.result = raw.result.value;
  record.error = raw.result.error;
  record.why = raw.note;
  record.start = raw.start;
  record.end = raw.start + raw.took;
  if (raw.connection != 0) {
    Connection* connection = &connections_[raw.connection];
    if (raw.operation == Operation::kOpen) connection->descriptor = descriptor;
    if (raw.result.value >= 0) Describe(raw, connection, &record);
    record.descriptor = connection->descriptor;
    record.client = connection->client;
    if (raw.operation == Operation::kClose) connections_.erase(raw.connection);
  }
  for (OperationObserver* observer : observers_) observer->OnOperation(record);
}

void Narrator::Describe(const RawOperation& raw, Connection* connection,
                        OperationRecord* record) const {
  if (raw.operation == Operation::kIoctl && raw.request == kConnectRequest) {
    connection->client = ClientName(raw.input);
    record->payload = Payload::kConnectRecord;
    record->bytes = raw.output;
  } else if (raw.operation == Operation::kWrite && raw.result.value > 0) {
    connection->commandId = WordAt(raw.input, kCommandIdOffset);
    connection->privateDataNext = false;
    record->payload = Payload::kRequest;
    record->commandId = connection->commandId;
    const auto taken = std::min(raw.input.size(), static_cast<std::size_t>(raw.result.value));
    record->bytes.assign(raw.input.begin(), raw.input.begin() + static_cast<long>(taken));
  } else if (raw.operation == Operation::kRead && raw.result.value > 0) {
    const bool isPrivate = connection->privateDataNext;
    record->payload = isPrivate ? Payload::kPrivateData : Payload::kReply;
    record->commandId = connection->commandId;
    record->bytes = raw.output;
    if (!isPrivate) record->status = WordAt(raw.output, kStatusOffset);
    connection->privateDataNext = record->status && (*record->status & 0x80000000) != 0;
  }
}

std::string Narrator::ClientName(const Bytes& connectRecord) const {
  Guid guid{};
  if (connectRecord.size() < guid.size()) return "?";
  std::copy_n(connectRecord.begin(), guid.size(), guid.begin());
  for (const Client& client : clients_) {
    if (client.guid == guid) return client.name;
  }
  return GuidText(guid);
}

void Narrator::AddObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observers_.push_back(observer);
}

void Narrator::RemoveObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

}  // namespace zulisim
