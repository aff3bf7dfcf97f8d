#include "oscl/user_feature_notify.h"

#include "oscl/file.h"
#include "oscl/inert.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature_key.h"

namespace {

constexpr uint32_t kNotifyLastSet = 4;
constexpr uint32_t kInfinite = 0xFFFFFFFFu;
constexpr uint32_t kExecuteOnce = 8;

// The key and event of a watch, made where they are missing.
HRESULT Prepare(const UserFeatureNotifyKey& key, UserFeatureNotifyData& watch) {
  if (watch.key == 0) {
    const HRESULT opened = OSCL_UserFeature_OpenRegistry(key.rootType, key.path, 0, &watch.key);
    if (opened != S_OK) return opened;
  }
  if (watch.event == nullptr) watch.event = CreateEventEx(nullptr, nullptr, 0, 0);
  return watch.event != nullptr ? S_OK : E_FAIL;
}

HRESULT ForgetWait(UserFeatureNotifyData& watch) {
  if (watch.wait == nullptr) return S_OK;
  if (UnregisterWaitEx(watch.wait, nullptr) == 0) return E_FAIL;
  watch.wait = nullptr;
  return S_OK;
}

HRESULT StartWait(UserFeatureNotifyKey& key, UserFeatureNotifyData& watch) {
  if (RegNotifyChangeKeyValue(watch.key, 0, kNotifyLastSet, watch.event, 1) != 0) return E_FAIL;
  const BOOL registered = RegisterWaitForSingleObject(
      &watch.wait, watch.event, OSCL_UserFeature_RegistryCallback, &key, kInfinite, kExecuteOnce);
  return registered != 0 ? S_OK : E_FAIL;
}

}  // namespace

HRESULT OSCL_UserFeature_EnableNotification(void* /*iface*/, UserFeatureNotifyKey* key) {
  if (key == nullptr) return E_FAIL;
  key->changed = 0;
  if (key->notifyData == nullptr) {
    key->notifyData =
        static_cast<UserFeatureNotifyData*>(AllocAndZeroMem(sizeof(UserFeatureNotifyData)));
    if (key->notifyData == nullptr) return E_FAIL;
  }
  UserFeatureNotifyData& watch = *key->notifyData;
  HRESULT result = Prepare(*key, watch);
  if (result == S_OK) result = ForgetWait(watch);
  return result == S_OK ? StartWait(*key, watch) : result;
}

HRESULT OSCL_UserFeature_DisableNotification(void* /*iface*/, UserFeatureNotifyKey* key) {
  if (key == nullptr || key->notifyData == nullptr) return S_OK;
  const UserFeatureNotifyData& watch = *key->notifyData;
  if (watch.wait != nullptr) UnregisterWaitEx(watch.wait, nullptr);
  if (watch.key != 0) RegCloseKey_Linux(watch.key);
  // The event is the constant 1, so this closes descriptor 1, as callers are built against.
  if (watch.event != nullptr) CloseHandle(watch.event);
  FreeMem(key->notifyData);
  key->notifyData = nullptr;
  return S_OK;
}

void OSCL_UserFeature_RegistryCallback(void* context, uint8_t /*timedOut*/) {
  if (context != nullptr) static_cast<UserFeatureNotifyKey*>(context)->changed = 1;
}
