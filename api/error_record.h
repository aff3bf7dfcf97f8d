#pragma once

#include <cstdint>

#include "transport/kalo_status.h"

class ClientSession;

// Marks an empty last-error record, and is the context of errors that have no handle.
constexpr uint32_t kNoErrorMarker = 0xDEADBEEF;
inline void* const kNoErrorContext =
    reinterpret_cast<void*>(static_cast<uintptr_t>(kNoErrorMarker));

// The code recorded for a failure that carries no status of its own.
constexpr uint32_t kNoStatusCode = 0xFFFFFFFF;

// Stores the error in the session's own record, which memory running short must not turn into an
// exception.
void StoreSessionError(ClientSession& session, KALO_DLL_STATUS status, const char* text) noexcept;
void StoreSessionError(ClientSession& session, const char* text) noexcept;

// SaveLastErrorInfo for this process.
void RecordError(_KaloDllErrorSource source, const char* text, uint32_t code, void* context);
