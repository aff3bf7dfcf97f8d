#include "transport/client_session.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "transport/cp_drem_session.h"
#include "transport/kalo_exception.h"
#include "transport/last_destroyed.h"
#include "transport/message_header.h"

const _GUID ClientSession::KALO_CLIENT_GUID = {
    0xFBF6FCF1, 0x96CF, 0x4E2E, {0xA6, 0xA6, 0x1B, 0xAB, 0x8C, 0xBE, 0x36, 0xB1}};
const _GUID ClientSession::FENU_CLIENT_GUID = {
    0xB638AB7E, 0x94E2, 0x4EA2, {0xA5, 0x52, 0xD1, 0xC5, 0x4B, 0x62, 0x7F, 0x04}};
const _GUID ClientSession::SAB_CLIENT_GUID = {
    0xF0752030, 0xFA98, 0x4BA7, {0x9D, 0x7D, 0x4B, 0x63, 0x0B, 0xBF, 0xD6, 0x4D}};

namespace {

constexpr unsigned int kFamilySize = 0x10000;
constexpr unsigned int kFenuFamily = 0x30000;
constexpr unsigned int kSecondKaloFamilyBit = 0x40000;

void Append(std::vector<CpDremSession*>& sessions, std::unique_ptr<CpDremSession> session) {
  sessions.push_back(session.get());
  session.release();
}

// Returns the only session of a list. Contract: throws the second text if there are several.
CpDremSession& Only(const std::vector<CpDremSession*>& sessions) {
  if (sessions.empty()) throw std::logic_error("No active DREM sessions");
  if (sessions.size() > 1) throw std::logic_error("IOCTL call without active DREM sessions");
  return *sessions.front();
}

}  // namespace

ClientSession::ClientSession() : lastErrorStatus(-1) {
  for (transport::LastDestroyed* last :
       {&transport::lastDestroyedKalo, &transport::lastDestroyedFenu}) {
    const ClientSession* self = this;
    last->compare_exchange_strong(self, nullptr);
  }
}

ClientSession::~ClientSession() {
  for (CpDremSession* session : dremSessions) delete session;
}

const _GUID* ClientSession::CommandIdToGuid(unsigned int commandId) {
  if ((commandId & ~kSecondKaloFamilyBit) < kFamilySize) return &KALO_CLIENT_GUID;
  if (commandId - kFenuFamily < kFamilySize) return &FENU_CLIENT_GUID;
  return &KALO_CLIENT_GUID;
}

void ClientSession::ConnectClient(const _GUID* guid) {
  Append(dremSessions, std::make_unique<CpDremSession>(guid, nullptr));
}

void ClientSession::ConnectClient(const _GUID* guid, const _GUID* parentGuid) {
  if (GetDremSession(guid) != nullptr) {
    throw std::runtime_error("Already connected to this client");
  }
  CpDremSession* parent = GetDremSession(parentGuid);
  if (parent == nullptr) throw std::runtime_error("ParentSession not connected");
  Append(dremSessions, std::make_unique<CpDremSession>(guid, parent));
}

void ClientSession::DisconnectClient(const _GUID* guid) {
  const auto found =
      std::find_if(dremSessions.begin(), dremSessions.end(),
                   [guid](const CpDremSession* session) { return session->clientGuid == guid; });
  if (found == dremSessions.end()) throw std::logic_error("Not connected to this client");
  delete *found;
  dremSessions.erase(found);
}

void ClientSession::DisconnectAllClients() {
  for (CpDremSession* session : dremSessions) delete session;
  dremSessions.clear();
}

CpDremSession* ClientSession::GetDremSession(const _GUID* guid) {
  for (CpDremSession* session : dremSessions) {
    if (session->clientGuid == guid) return session;
  }
  return nullptr;
}

CpDremSession* ClientSession::GetDremSession(unsigned int commandId) {
  CpDremSession* session = GetDremSession(CommandIdToGuid(commandId));
  if (session == nullptr) throw std::logic_error("Not connected to client of this command");
  return session;
}

void ClientSession::IoMessage(unsigned char* input, unsigned int inputLength, unsigned char* output,
                              unsigned int outputLength, unsigned char* privateData,
                              unsigned int* privateDataLength) {
  if (dremSessions.empty()) throw std::logic_error("No active DREM sessions");
  if (inputLength < sizeof(KaloMessageHeader)) {
    throw KaloException(KALO_DLL_STATUS_INPUT_BUFFER_TOO_SMALL, "Input buffer < kalo header size");
  }
  if (outputLength < sizeof(KaloMessageHeader)) {
    throw KaloException(KALO_DLL_STATUS_OUTPUT_BUFFER_TOO_SMALL,
                        "Output buffer < kalo header size");
  }
  // Contract: a single connection serves every command. A null request has no command; every
  // connection ends its exchange without an error.
  CpDremSession* session = dremSessions.size() == 1 || input == nullptr
                               ? dremSessions.front()
                               : GetDremSession(transport::HeaderOf(input).commandId);
  session->IoMessage(input, inputLength, output, outputLength, privateData, privateDataLength);
}

void ClientSession::IoControl(unsigned char*, unsigned int, unsigned char*, unsigned int) {
  throw std::runtime_error("IoControl() not implemented");
}

void ClientSession::IoctlAllocWrapper(unsigned char* buffer, unsigned int length,
                                      unsigned char* output) {
  Only(dremSessions).IoctlAllocWrapper(buffer, length, output);
}

void ClientSession::IoctlFreeWrapper(unsigned char* buffer, unsigned int length) {
  Only(dremSessions).IoctlFreeWrapper(buffer, length);
}

void ClientSession::storeErrInfo(KALO_DLL_STATUS status, const std::string& text) {
  lastErrorStatus = static_cast<int32_t>(status);
  text.copy(lastErrorText, sizeof lastErrorText);
}

void ClientSession::storeErrInfo(const std::string& text) {
  lastErrorStatus = -1;
  text.copy(lastErrorText, sizeof lastErrorText);
}
