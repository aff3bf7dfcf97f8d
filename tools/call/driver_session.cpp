#include "tools/call/driver_session.h"

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "transport/client_session.h"
#include "transport/cp_drem_session.h"

namespace kaloctl {
namespace {

constexpr unsigned int kPrivateDataSize = 16;

uint32_t Open(Client client, Generation generation, void** handle) {
  if (generation == Generation::kVersion3) {
    return client == Client::kKalo ? KaloInit3(handle) : FenuInit3(handle);
  }
  return client == Client::kKalo ? KaloInit() : FenuInit();
}

}  // namespace

const char* ClientName(Client client) { return client == Client::kKalo ? "KALO" : "FENU"; }

Client ClientOfCommand(uint32_t commandId) {
  const bool fenu = ClientSession::CommandIdToGuid(commandId) == &ClientSession::FENU_CLIENT_GUID;
  return fenu ? Client::kFenu : Client::kKalo;
}

DriverSession::DriverSession(Client client, Generation generation)
    : client_(client), generation_(generation), status_(Open(client, generation, &handle_)) {}

DriverSession::~DriverSession() {
  if (status_ != KALO_DLL_STATUS_SUCCESS) return;
  if (generation_ == Generation::kVersion3) {
    client_ == Client::kKalo ? KaloCleanup3(handle_) : FenuCleanup3(handle_);
  } else {
    client_ == Client::kKalo ? KaloCleanup() : FenuCleanup();
  }
}

const char* DriverSession::InitName() const {
  if (generation_ == Generation::kVersion3) {
    return client_ == Client::kKalo ? "KaloInit3" : "FenuInit3";
  }
  return client_ == Client::kKalo ? "KaloInit" : "FenuInit";
}

const char* DriverSession::CommandName() const {
  return generation_ == Generation::kVersion3 ? "StartIoEx3" : "StartIoEx";
}

ZuliConnectRecord::Properties DriverSession::Properties() const {
  const _GUID* guid = client_ == Client::kKalo ? &ClientSession::KALO_CLIENT_GUID
                                               : &ClientSession::FENU_CLIENT_GUID;
  return Session()->GetDremSession(guid)->connectRecord->out;
}

uint32_t DriverSession::Exchange(std::vector<uint8_t> request, ReplyBuffer& reply,
                                 std::vector<uint8_t>* privateData) {
  uint8_t block[kPrivateDataSize] = {};
  unsigned int blockLength = 0;
  uint8_t* const blockData = privateData != nullptr ? block : nullptr;
  unsigned int* const blockSize = privateData != nullptr ? &blockLength : nullptr;
  const auto length = static_cast<unsigned int>(request.size());
  const uint32_t status =
      generation_ == Generation::kVersion3
          ? StartIoEx3(handle_, request.data(), length, reply.data(), reply.size(), blockData,
                       blockSize)
          : StartIoEx(request.data(), length, reply.data(), reply.size(), blockData, blockSize);
  if (privateData != nullptr) privateData->assign(block, block + blockLength);
  return status;
}

ClientSession* DriverSession::Session() const {
  if (generation_ == Generation::kVersion3) return static_cast<ClientSession*>(handle_);
  return client_ == Client::kKalo ? gKaloDllState.kaloSessionA : gKaloDllState.fenuSession;
}

}  // namespace kaloctl
