#pragma once

#include "oscl/user_feature_types.h"

OSCL_BEGIN_C

/* Starts to watch a key: sets `changed` to 0 and fills `notifyData`, which DisableNotification
 * releases, also after a failure. On this platform nothing signals a change, so `changed` stays 0.
 * Returns 0, the code of RegOpenKeyEx, or E_FAIL. */
HRESULT OSCL_UserFeature_EnableNotification(void* iface, UserFeatureNotifyKey* key);

/* Stops watching and releases `notifyData`; without one nothing happens. Returns 0.
 *
 * THIS CLOSES FILE DESCRIPTOR 1: no event objects exist, their handle is the constant 1, and
 * closing a handle closes the descriptor of that number. Callers that need their standard output
 * keep a duplicate of it. */
HRESULT OSCL_UserFeature_DisableNotification(void* iface, UserFeatureNotifyKey* key);

/* Sets `changed` of the UserFeatureNotifyKey `context` to 1. `timedOut` is ignored. */
void OSCL_UserFeature_RegistryCallback(void* context, uint8_t timedOut);

OSCL_END_C
