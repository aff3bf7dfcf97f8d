#include "transport/session_registry.h"

#include <pthread.h>

#include <unordered_map>

namespace session_registry {

namespace {

// Constant-initialised and never destroyed by the runtime, so that the library keeps its two static
// objects and their order; Release frees the map.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
std::unordered_map<const ClientSession*, bool>* deadByAddress = nullptr;

class Guard {
 public:
  Guard() { pthread_mutex_lock(&mutex); }
  ~Guard() { pthread_mutex_unlock(&mutex); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
};

}  // namespace

void Born(const ClientSession* session) {
  const Guard guard;
  if (deadByAddress == nullptr) deadByAddress = new std::unordered_map<const ClientSession*, bool>;
  (*deadByAddress)[session] = false;
}

void Died(const ClientSession* session) {
  const Guard guard;
  if (deadByAddress == nullptr) return;
  const auto found = deadByAddress->find(session);
  if (found != deadByAddress->end()) found->second = true;
}

bool IsDead(const ClientSession* session) {
  const Guard guard;
  if (deadByAddress == nullptr) return false;
  const auto found = deadByAddress->find(session);
  return found != deadByAddress->end() && found->second;
}

void Release() {
  const Guard guard;
  delete deadByAddress;
  deadByAddress = nullptr;
}

}  // namespace session_registry
