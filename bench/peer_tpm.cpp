#include <tss2/tss2_tcti_device.h>

#include <cstdio>
#include <cstdlib>

#include "bench/free_device.h"
#include "bench/peers.h"

namespace bench {

namespace {

TSS2_TCTI_CONTEXT* ContextOf(void* context) { return static_cast<TSS2_TCTI_CONTEXT*>(context); }

void Check(TSS2_RC result, const char* what) {
  if (result == TSS2_RC_SUCCESS) return;
  std::fprintf(stderr, "the TPM device transport failed to %s: 0x%x\n", what, result);
  std::exit(1);
}

}  // namespace

TpmPeer::TpmPeer() : context_(nullptr) {
  setenv("TSS2_LOG", "all+NONE", 1);
  size_t size = 0;
  Check(Tss2_Tcti_Device_Init(nullptr, &size, nullptr), "report its size");
  context_ = std::calloc(1, size);
  Check(Tss2_Tcti_Device_Init(ContextOf(context_), &size, "/dev/tpm0"), "open the device");
}

TpmPeer::~TpmPeer() {
  Tss2_Tcti_Finalize(ContextOf(context_));
  std::free(context_);
}

void TpmPeer::Exchange() {
  const uint8_t request[kMessageLength] = {0x80, 0x01, 0, 0, 0, kMessageLength};
  uint8_t reply[kMessageLength];
  size_t size = sizeof reply;
  Check(Tss2_Tcti_Transmit(ContextOf(context_), sizeof request, request), "transmit");
  Check(Tss2_Tcti_Receive(ContextOf(context_), &size, reply, TSS2_TCTI_TIMEOUT_BLOCK), "receive");
}

}  // namespace bench
