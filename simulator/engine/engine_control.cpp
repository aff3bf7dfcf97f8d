// What an engine is told and asked from outside; its work on the device is in engine.cpp.

#include <algorithm>
#include <stdexcept>

#include "simulator/engine/engine.h"

namespace zulisim {

const Client& Engine::ClientNamed(const std::string& name) const {
  std::string known;
  for (const Client& client : clients_) {
    if (client.name == name) return client;
    known += (known.empty() ? "" : ", ") + client.name;
  }
  throw std::invalid_argument("no client is named '" + name + "'; known are " + known);
}

void Engine::SetResponder(const std::string& client, std::uint32_t command, Responder responder) {
  ClientNamed(client);
  std::lock_guard<std::mutex> lock(mutex_);
  responders_[{client, command}] = std::move(responder);
}

void Engine::SetResponder(const std::string& client, Responder responder) {
  ClientNamed(client);
  std::lock_guard<std::mutex> lock(mutex_);
  responders_[{client, std::nullopt}] = std::move(responder);
}

void Engine::SetIoctl(std::uint32_t request, IoctlHandler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  ioctls_[request] = std::move(handler);
}

void Engine::AddFault(const Fault& fault) {
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

void Engine::FailNext(Operation operation, int error, std::uint64_t times) {
  AddFault({operation, Count(operation) + 1, times, ErrnoFault{error}});
}

void Engine::ShortenNext(Operation operation, std::size_t count) {
  AddFault({operation, Count(operation) + 1, 1, ShortCount{count}});
}

void Engine::LoseDeviceAtNext(Operation operation, std::uint64_t times, const DeviceLoss& loss) {
  AddFault({operation, Count(operation) + 1, times, loss});
}

void Engine::AddObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observers_.push_back(observer);
}

void Engine::RemoveObserver(OperationObserver* observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

std::uint64_t Engine::Count(Operation operation) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return counts_[static_cast<std::size_t>(operation)];
}

std::size_t Engine::OpenDescriptors() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return connections_.size();
}

std::vector<OperationRecord> Engine::Records() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return records_;
}

void Engine::ClearRecords() {
  std::lock_guard<std::mutex> lock(mutex_);
  records_.clear();
}

std::vector<Bytes> Engine::Requests(const std::string& client) const {
  ClientNamed(client);
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Bytes> requests;
  for (const OperationRecord& record : records_) {
    if (record.payload == Payload::kRequest && record.client == client) {
      requests.push_back(record.bytes);
    }
  }
  return requests;
}

}  // namespace zulisim
