#pragma once

/* For C++ only. */
#ifndef __cplusplus
#error \
    "api/kalo_client.h is for C++ only; C drivers include api/kalo_dll.h and api/kalo_dll_state.h"
#endif

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "transport/client_session.h"
#include "transport/cp_drem_session.h"
#include "transport/message_header.h"

// A safe wrapper of the version-3 entry points: it owns the handle, serialises commands and tells
// the outcomes of a command apart. Header-only; needs only libkalodll.so.
//
//   kalo::Client client;
//   const kalo::Result result = client.Send(request, sizeof request, reply, sizeof reply);
//   if (result.outcome == kalo::Outcome::kDone) ...
namespace kalo {

enum class Firmware { kKalo, kFenu };

enum class Outcome {
  // The reply has a status of 0 or more.
  kDone,
  // The reply has a negative status; the private data was read.
  kRefused,
  // The request did not reach the firmware. It may be sent again.
  kNotSent,
  // The device failed during the exchange. The firmware may have executed the request.
  kUnknown,
};

struct Result {
  Outcome outcome = Outcome::kDone;
  // The status of the reply, for kDone and kRefused.
  int32_t firmwareStatus = 0;
  // The private data that followed a refusal: `privateDataLength` bytes.
  std::array<unsigned char, 16> privateData{};
  unsigned int privateDataLength = 0;
  // The status and the error text of the library, for kNotSent and kUnknown. Both firmwares share
  // one record, so the text may belong to the other firmware if both fail at the same time.
  KALO_DLL_STATUS status = KALO_DLL_STATUS_SUCCESS;
  std::string text;
};

// Sends commands to one firmware client. All Clients of a program or driver for the same firmware
// share one handle and one lock, so any thread may use any of them at any time. No other code of
// the process may call the library's initialisations, cleanups or commands for that firmware.
//
// A Client may have static storage duration. Its destructor releases the handle while the library
// still works: when the program calls exit or returns from main, or when dlclose unloads the
// driver. It waits for a command that another thread is sending, so end such threads first, and do
// not call exit in a log sink. _exit and abort run no destructor; the kernel then closes the
// connection. A driver built with g++ stays loaded after dlclose, because g++ makes the state that
// Clients share unique in the process.
class Client {
 public:
  // The first KALO Client of the process announces `apiVersion` and `option`.
  explicit Client(Firmware firmware = Firmware::kKalo, uint32_t apiVersion = KALO_FIRMWARE_API_32,
                  uint32_t option = 0)
      : shared_(SharedOf(firmware)) {
    const std::lock_guard<std::mutex> lock(shared_.mutex);
    ++shared_.clients;
    if (firmware == Firmware::kFenu || shared_.announced) return;
    KALO_STATE_INIT_PARAMS params = {apiVersion, option};
    KaloStateInit(&params);
    shared_.announced = true;
  }

  // The last Client for a firmware releases the handle.
  ~Client() {
    const std::lock_guard<std::mutex> lock(shared_.mutex);
    if (--shared_.clients == 0) shared_.GiveBack();
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Sends a request and reads its reply. Lengths are in bytes, at least 16, the size of the header.
  // Bytes of `reply` that were not received are 0. Both may be one buffer. The first call opens the
  // connection, and so does the next call after a device failure. Each opening keeps a descriptor
  // of the log file open for the life of the process, so do not repeat a failing call in a tight
  // loop. Throws only std::bad_alloc.
  Result Send(const void* request, unsigned int requestLength, void* reply,
              unsigned int replyLength) {
    const std::lock_guard<std::mutex> lock(shared_.mutex);
    std::string copy;
    if (Overlap(request, requestLength, reply, replyLength)) {
      copy.assign(static_cast<const char*>(request), requestLength);
      request = copy.data();
    }
    if (reply != nullptr) std::memset(reply, 0, replyLength);
    if (shared_.handle == nullptr) {
      const KALO_DLL_STATUS status = shared_.Take();
      if (status != KALO_DLL_STATUS_SUCCESS) {
        shared_.GiveBack();  // a failed initialisation may leave the address of a destroyed session
        return Failed(Outcome::kNotSent, status);
      }
      if (shared_.handle == nullptr) {
        return {Outcome::kNotSent, 0, {}, 0, status, "other code has closed the session"};
      }
    }
    // No firmware uses this status. If it is still there afterwards, no status was received.
    constexpr uint32_t kNoStatus = 0x5AFEC0DE;
    if (reply != nullptr && replyLength >= sizeof(KaloMessageHeader)) {
      std::memcpy(StatusOf(reply), &kNoStatus, sizeof kNoStatus);
    }
    Result result;
    result.status =
        StartIoEx3(shared_.handle, static_cast<unsigned char*>(const_cast<void*>(request)),
                   requestLength, static_cast<unsigned char*>(reply), replyLength,
                   result.privateData.data(), &result.privateDataLength);
    if (result.status != KALO_DLL_STATUS_SUCCESS) {
      // 2, 3 and 4 mean invalid arguments; any other status comes from the device.
      const bool device = result.status == KALO_DLL_STATUS_FAILURE;
      if (reply != nullptr) std::memset(reply, 0, replyLength);
      if (device) shared_.GiveBack();
      return Failed(device ? Outcome::kUnknown : Outcome::kNotSent, result.status);
    }
    uint32_t firmwareStatus;
    std::memcpy(&firmwareStatus, StatusOf(reply), sizeof firmwareStatus);
    if (firmwareStatus == kNoStatus) {
      std::memset(StatusOf(reply), 0, sizeof firmwareStatus);
      if (!shared_.IsClosed()) {
        return {Outcome::kUnknown, 0, {}, 0, result.status, "the reply holds no status"};
      }
      shared_.GiveBack();
      return {Outcome::kNotSent, 0, {}, 0, result.status, "the connection was closed"};
    }
    result.firmwareStatus = static_cast<int32_t>(firmwareStatus);
    if (result.firmwareStatus < 0) result.outcome = Outcome::kRefused;
    return result;
  }

 private:
  // One handle per firmware: handles that share a session need one lock, and a failed session is
  // replaced only when its last handle is released.
  struct Shared {
    explicit Shared(Firmware which) : firmware(which) {}

    KALO_DLL_STATUS Take() {
      return firmware == Firmware::kKalo ? KaloInit3(&handle) : FenuInit3(&handle);
    }
    void GiveBack() {
      if (handle == nullptr) return;
      firmware == Firmware::kKalo ? KaloCleanup3(handle) : FenuCleanup3(handle);
      handle = nullptr;
    }
    // After a failed reconnect, the connection sends nothing and reports no error.
    bool IsClosed() const {
      const auto& connections = static_cast<const ClientSession*>(handle)->dremSessions;
      return connections.empty() || connections.front()->deviceFd == -1;
    }

    const Firmware firmware;
    std::mutex mutex;
    void* handle = nullptr;
    unsigned int clients = 0;
    bool announced = false;
  };

  static Shared& SharedOf(Firmware firmware) {
    static Shared kalo(Firmware::kKalo), fenu(Firmware::kFenu);
    return firmware == Firmware::kKalo ? kalo : fenu;
  }

  static unsigned char* StatusOf(void* message) {
    return static_cast<unsigned char*>(message) + offsetof(KaloMessageHeader, status);
  }

  static bool Overlap(const void* request, unsigned int requestLength, const void* reply,
                      unsigned int replyLength) {
    const auto requestStart = reinterpret_cast<uintptr_t>(request);
    const auto replyStart = reinterpret_cast<uintptr_t>(reply);
    return request != nullptr && reply != nullptr && requestStart < replyStart + replyLength &&
           replyStart < requestStart + requestLength;
  }

  static Result Failed(Outcome outcome, KALO_DLL_STATUS status) {
    return {outcome, 0, {}, 0, status, gKaloDllState.apiErrorText};
  }

  Shared& shared_;
};

}  // namespace kalo
