#pragma once

class ClientSession;

// Remembers the addresses of destroyed sessions: drivers, and the global state, may still hold
// them. Any thread.
namespace session_registry {

// A session takes the address; nothing destroyed is there any more. Throws std::bad_alloc.
void Born(const ClientSession* session);

// The session at the address has been destroyed. Allocates nothing: Born has made room.
void Died(const ClientSession* session);

// True from Died until the next Born; false for an address that never held a session.
bool IsDead(const ClientSession* session);

// Frees everything. At unload only.
void Release();

}  // namespace session_registry
