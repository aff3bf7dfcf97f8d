#pragma once

#include <vector>

#include "api/kalo_dll.h"
#include "log/logger.h"
#include "simulator/in_process/in_process_device.h"

// A driver whose messages carry a tag, and the sinks that its initialisations add.
namespace driver {

using zulisim::Bytes;

// The tag is in header words 0 and 3 and all over the body.
inline Bytes Request(uint32_t driver, uint32_t number) {
  Bytes request(64);
  for (size_t offset = 0; offset < request.size(); offset += 4) {
    zulisim::SetWordAt(&request, offset, driver << 24 | number);
  }
  zulisim::SetWordAt(&request, zulisim::kCommandIdOffset, 0x10);
  return request;
}

// Every third request is answered with private data, which holds the tag as well.
inline zulisim::Reply Answer(const Bytes& request) {
  if (*zulisim::WordAt(request, 12) % 3 != 0) return zulisim::EchoReply(request);
  return zulisim::EchoReply(request, 0x80000001, Bytes(request.end() - 16, request.end()));
}

// KaloInit3 registers a sink each time; those beyond the first `kept` are taken away again.
inline void TrimSinks(size_t kept) {
  EnterCriticalSection(&Logger::logBase.lock);
  std::vector<LogSink*>& sinks = Logger::logBase.sinks;
  for (; sinks.size() > kept; sinks.pop_back()) delete sinks.back();
  LeaveCriticalSection(&Logger::logBase.lock);
}

}  // namespace driver
