// A driver for engine_test. It keeps its client for as long as it is loaded.

#include "api/kalo_client.h"

static kalo::Client client(kalo::Firmware::kFenu);

extern "C" int Drive() {
  unsigned char message[32] = {0, 0, 0, 0, 0, 0, 3};
  return static_cast<int>(client.Send(message, sizeof message, message, sizeof message).outcome);
}
