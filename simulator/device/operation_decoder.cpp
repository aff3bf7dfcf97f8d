#include "simulator/device/operation_decoder.h"

#include <algorithm>

namespace zulisim {

void OperationDecoder::Decode(OperationRecord* record) {
  record->sequence = ++sequence_;
  record->occurrence = ++counts_[static_cast<std::size_t>(record->operation)];
  if (record->connection == 0) return;
  Connection* connection = &connections_[record->connection];
  if (record->operation == Operation::kOpen) connection->descriptor = record->descriptor;
  if (record->result >= 0) Describe(connection, record);
  record->descriptor = connection->descriptor;
  record->client = connection->client;
  if (record->operation == Operation::kClose) connections_.erase(record->connection);
}

void OperationDecoder::Describe(Connection* connection, OperationRecord* record) const {
  if (record->IsConnect()) {
    connection->client = ClientName(record->input);
    record->payload = Payload::kConnectRecord;
  } else if (record->operation == Operation::kWrite && record->result > 0) {
    record->payload = Payload::kRequest;
    connection->commandId = WordAt(record->Message(), kCommandIdOffset);
    connection->privateDataNext = false;
    record->commandId = connection->commandId;
  } else if (record->operation == Operation::kRead && record->result > 0) {
    const bool isPrivate = connection->privateDataNext;
    record->payload = isPrivate ? Payload::kPrivateData : Payload::kReply;
    record->commandId = connection->commandId;
    if (!isPrivate) record->status = WordAt(record->output, kStatusOffset);
    connection->privateDataNext = record->status && IsNegative(*record->status);
  }
}

std::string OperationDecoder::ClientName(const Bytes& connectRecord) const {
  Guid guid{};
  if (connectRecord.size() < guid.size()) return "?";
  std::copy_n(connectRecord.begin(), guid.size(), guid.begin());
  for (const Client& client : clients_) {
    if (client.guid == guid) return client.name;
  }
  return GuidText(guid);
}

}  // namespace zulisim
