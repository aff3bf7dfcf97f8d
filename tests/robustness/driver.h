#pragma once

#include <vector>

#include "api/kalo_dll.h"
#include "log/logger.h"
#include "simulator/in_process/in_process_device.h"

// A driver whose messages carry a tag, and the sinks that it adds.
namespace driver {

using zulisim::Bytes;

// The n-th request of a driver: the tag is in header words 0 and 3 and all over the body.
inline Bytes Request(uint32_t driver, uint32_t number, uint32_t command) {
  Bytes request(64);
  for (size_t offset = 0; offset < request.size(); offset += 4) {
    zulisim::SetWordAt(&request, offset, driver << 24 | number);
  }
  zulisim::SetWordAt(&request, zulisim::kCommandIdOffset, command);
  return request;
}

inline uint32_t TagOf(const Bytes& message) { return *zulisim::WordAt(message, 12); }

// Every third request is answered with private data, which holds the tag as well.
inline zulisim::Reply Answer(const Bytes& request) {
  if (TagOf(request) % 3 != 0) return zulisim::EchoReply(request);
  return zulisim::EchoReply(request, 0x80000001, Bytes(request.end() - 16, request.end()));
}

struct Outcome {
  explicit Outcome(void* session, Bytes request) {
    unsigned int length = 0;
    status = StartIoEx3(session, request.data(), 64, reply.data(), 64, privateData.data(), &length);
    privateData.resize(length);
  }
  bool Answers(const Bytes& request) const {
    const zulisim::Reply due = Answer(request);
    return reply == *due.message && privateData == due.privateData.value_or(Bytes());
  }

  uint32_t status = 0;
  Bytes reply = Bytes(64);
  Bytes privateData = Bytes(16);
};

// KaloInit3 registers a sink each time; those beyond the first `kept` are taken away again.
inline void TrimSinks(size_t kept) {
  EnterCriticalSection(&Logger::logBase.lock);
  std::vector<LogSink*>& sinks = Logger::logBase.sinks;
  for (; sinks.size() > kept; sinks.pop_back()) delete sinks.back();
  LeaveCriticalSection(&Logger::logBase.lock);
}

}  // namespace driver
