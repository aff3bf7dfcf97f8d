#include "transport/session_registry.h"

#include <pthread.h>

#include <unordered_map>

namespace session_registry {

namespace {

struct Occupant {
  // kNobody when the last one died.
  uint64_t serial = kNobody;
  bool adopted = false;
};
using Occupants = std::unordered_map<const ClientSession*, Occupant>;

// Constant-initialised and never destroyed by the runtime, so that the library keeps its two static
// objects and their order; Release frees the map.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
Occupants* occupants = nullptr;
uint64_t lastSerial = kNobody;
// What a process calls while it ends finds no session any more.
bool released = false;

class Guard {
 public:
  Guard() : locked_(pthread_mutex_lock(&mutex) == 0) {}
  ~Guard() {
    if (locked_) pthread_mutex_unlock(&mutex);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  const bool locked_;
};

// Null for an address that never held a session. The mutex is held.
Occupant* Find(const ClientSession* session) {
  if (occupants == nullptr) return nullptr;
  const auto found = occupants->find(session);
  return found != occupants->end() ? &found->second : nullptr;
}

}  // namespace

void Born(const ClientSession* session) {
  const Guard guard;
  if (occupants == nullptr) occupants = new Occupants;
  (*occupants)[session] = Occupant{++lastSerial, false};
}

void Died(const ClientSession* session) {
  const Guard guard;
  if (Occupant* occupant = Find(session)) *occupant = Occupant{};
}

uint64_t Adopt(const ClientSession* session) {
  const Guard guard;
  Occupant* occupant = Find(session);
  if (occupant == nullptr || occupant->serial == kNobody) return kNobody;
  occupant->adopted = true;
  return occupant->serial;
}

bool IsGone(const ClientSession* session, uint64_t serial) {
  const Guard guard;
  const Occupant* occupant = Find(session);
  if (occupant == nullptr) return released;
  if (occupant->serial == serial) return false;
  return occupant->serial == kNobody || occupant->adopted;
}

bool IsDead(const ClientSession* session) {
  const Guard guard;
  const Occupant* occupant = Find(session);
  return occupant == nullptr ? released : occupant->serial == kNobody;
}

void Release() {
  const Guard guard;
  delete occupants;
  occupants = nullptr;
  released = true;
}

}  // namespace session_registry
