#pragma once

#include <cstdint>

class ClientSession;

// Tells the sessions that have stood at one address apart: drivers, and the global state, may still
// hold the address of a session that has been destroyed. Any thread.
namespace session_registry {

// No session.
constexpr uint64_t kNobody = 0;

// A session takes the address. Throws std::bad_alloc.
void Born(const ClientSession* session);

// The session at the address has been destroyed. Allocates nothing: Born has made room.
void Died(const ClientSession* session);

// The library keeps this session in its state. Returns a number that no other session ever had, or
// kNobody when none lives at the address.
uint64_t Adopt(const ClientSession* session);

// True when the session that was adopted under this number is gone. Another one at its address
// does not bring it back, unless other code made it, which then means that very address.
bool IsGone(const ClientSession* session, uint64_t serial);

// True when the last session at the address has been destroyed; false for an address that never
// held one, before Release.
bool IsDead(const ClientSession* session);

// Frees everything. At unload only: every session of before counts as destroyed from then on.
void Release();

}  // namespace session_registry
