#pragma once

#include <atomic>

class ClientSession;

namespace transport {

// The address of the session that the KALO or the FENU side destroyed last. A second cleanup with
// this address destroys nothing. A new ClientSession at the address clears it.
using LastDestroyed = std::atomic<const ClientSession*>;
inline LastDestroyed lastDestroyedKalo{nullptr};
inline LastDestroyed lastDestroyedFenu{nullptr};

}  // namespace transport
