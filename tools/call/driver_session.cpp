#include "tools/call/driver_session.h"

#include "api/kalo_dll.h"
#include "transport/client_session.h"
#include "transport/cp_drem_session.h"

namespace kaloctl {

const char* ClientName(Client client) { return client == Client::kKalo ? "KALO" : "FENU"; }

Client ClientOfCommand(std::uint32_t commandId) {
  const bool fenu = ClientSession::CommandIdToGuid(commandId) == &ClientSession::FENU_CLIENT_GUID;
  return fenu ? Client::kFenu : Client::kKalo;
}

DriverSession::DriverSession(Client client)
    : client_(client),
      status_(client == Client::kKalo ? KaloInit3(&handle_) : FenuInit3(&handle_)) {}

DriverSession::~DriverSession() {
  if (status_ != KALO_DLL_STATUS_SUCCESS) return;
  client_ == Client::kKalo ? KaloCleanup3(handle_) : FenuCleanup3(handle_);
}

const char* DriverSession::InitName() const {
  return client_ == Client::kKalo ? "KaloInit3" : "FenuInit3";
}

ZuliConnectRecord::Properties DriverSession::Properties() const {
  const _GUID* guid = client_ == Client::kKalo ? &ClientSession::KALO_CLIENT_GUID
                                               : &ClientSession::FENU_CLIENT_GUID;
  return static_cast<ClientSession*>(handle_)->GetDremSession(guid)->connectRecord->out;
}

std::uint32_t DriverSession::Exchange(std::vector<std::uint8_t> request, ReplyBuffer* reply,
                                      std::vector<std::uint8_t>* privateData) {
  privateData->resize(kPrivateDataSize);
  unsigned int length = 0;
  const std::uint32_t status =
      StartIoEx3(handle_, request.data(), static_cast<unsigned int>(request.size()), reply->data(),
                 reply->size(), privateData->data(), &length);
  privateData->resize(length);
  return status;
}

}  // namespace kaloctl
