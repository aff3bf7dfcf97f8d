#pragma once

/* Statuses and error sources, for C and C++. They belong to the transport because it throws them.
 */

#include <stdint.h>

#ifdef __cplusplus
#define KALO_ENUM(name) enum name : uint32_t
#else
#define KALO_ENUM(name)  \
  typedef uint32_t name; \
  enum
#endif

/* The result of every entry point. */
KALO_ENUM(KALO_DLL_STATUS){
    KALO_DLL_STATUS_SUCCESS = 0,
    /* A transfer failed, or a session could not be closed (not with this transport). */
    KALO_DLL_STATUS_FAILURE = 1,
    /* A null handle or buffer. */
    KALO_DLL_STATUS_INVALID_PARAMETER = 2,
    /* A request shorter than the 16-byte message header. */
    KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL = 3,
    /* A reply buffer smaller than the 16-byte message header. */
    KALO_DLL_STATUS_OUTPUT_BUFFER_TOO_SMALL = 4,
    /* gKaloDllState.kaloInterfaceVersion holds neither 0 nor 3. */
    KALO_DLL_STATUS_PROVISIONING_FAILED = 5,
    /* A call without a handle, before initialisation or after cleanup. */
    KALO_DLL_STATUS_NOT_INITIALIZED = 6};

/* The family of entry points that recorded an error. */
KALO_ENUM(_KaloDllErrorSource){
    /* KaloInit3, StartIoEx3, StartIo3, ProvisioningStartIo, FenuInit3. */
    KALO_ERROR_SOURCE_API3 = 1,
    /* StartIoEx and StartIo on the KALO session. */
    KALO_ERROR_SOURCE_KALO = 2,
    /* StartIoEx and StartIo on any other session. */
    KALO_ERROR_SOURCE_FENU = 3};

#undef KALO_ENUM
