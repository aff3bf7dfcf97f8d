#pragma once

#include <atomic>

class ClientSession;

namespace transport {

// The address of the session that one side of the library, KALO or FENU, destroyed last. A handle
// that is given back twice then destroys nothing. A new ClientSession at the address clears it.
using LastDestroyed = std::atomic<const ClientSession*>;
inline LastDestroyed lastDestroyedKalo{nullptr};
inline LastDestroyed lastDestroyedFenu{nullptr};

}  // namespace transport
