#pragma once

#include <cstdint>

#include "transport/kalo_status.h"

class ClientSession;

// Marks an empty last-error record, and is the context of errors without a handle.
constexpr uint32_t kNoErrorMarker = 0xDEADBEEF;
inline void* const kNoErrorContext =
    reinterpret_cast<void*>(static_cast<uintptr_t>(kNoErrorMarker));

// The code of a failure without a status.
constexpr uint32_t kNoStatusCode = 0xFFFFFFFF;

// Stores the error in the session's own record, without the text if memory is exhausted.
void StoreSessionError(ClientSession& session, KALO_DLL_STATUS status, const char* text) noexcept;
void StoreSessionError(ClientSession& session, const char* text) noexcept;

// Calls SaveLastErrorInfo with the id of this process.
void RecordError(_KaloDllErrorSource source, const char* text, uint32_t code, void* context);
