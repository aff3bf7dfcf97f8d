#include "log/stream_source.h"

#include <atomic>
#include <new>
#include <utility>

namespace logging {

namespace {

std::atomic_flag inUse = ATOMIC_FLAG_INIT;

// Never destroyed, so that messages at unload still find it; it holds no memory. Moving from it
// leaves it empty with its formats as they were, in both standard libraries.
alignas(std::stringstream) unsigned char storage[sizeof(std::stringstream)];
std::stringstream* shared = nullptr;

}  // namespace

StreamSource::StreamSource() {
  if (inUse.test_and_set(std::memory_order_acquire)) {
    own_.emplace();
  } else if (shared == nullptr) {
    shared = new (storage) std::stringstream;
  }
}

StreamSource::~StreamSource() {
  if (!own_.has_value()) inUse.clear(std::memory_order_release);
}

std::stringstream&& StreamSource::Take() {
  return std::move(own_.has_value() ? *own_ : *shared);
}

}  // namespace logging
