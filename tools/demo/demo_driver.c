/* A small driver for scripts/demo.sh: it makes the calls of a real driver and prints each result.
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "api/kalo_dll.h"

enum { kMessageSize = 24, kPrivateDataSize = 16, kHeaderSize = 16 };

static void say(const char* text) { printf("\n-- %s\n", text); }

static const char* nameOf(KALO_DLL_STATUS status) {
  return status == KALO_DLL_STATUS_SUCCESS ? "SUCCESS" : "FAILURE";
}

static void command(const char* name, void* handle, uint32_t commandId, const char* body) {
  unsigned char request[kMessageSize] = {0};
  unsigned char reply[kMessageSize] = {0};
  unsigned char privateData[kPrivateDataSize];
  unsigned int privateDataLength = 0;
  memcpy(request + 4, &commandId, sizeof commandId);
  memcpy(request + kHeaderSize, body, strlen(body));

  KALO_DLL_STATUS status = StartIoEx3(handle, request, sizeof request, reply, sizeof reply,
                                      privateData, &privateDataLength);
  printf("   driver: StartIoEx3(%s, command 0x%" PRIx32 ", \"%s\") = %u %s\n", name, commandId,
         body, (unsigned int)status, nameOf(status));
  if (status != KALO_DLL_STATUS_SUCCESS) return;
  uint32_t firmwareStatus;
  memcpy(&firmwareStatus, reply + 8, sizeof firmwareStatus);
  printf("   driver: the reply's status is 0x%" PRIx32 ", its body \"%.8s\"\n", firmwareStatus,
         (const char*)reply + kHeaderSize);
  if (privateDataLength == 0) return;
  printf("   driver: private data");
  for (unsigned int i = 0; i < privateDataLength; ++i) printf(" %02x", privateData[i]);
  putchar('\n');
}

static void* openSession(const char* name) {
  void* handle = NULL;
  KALO_DLL_STATUS status = KaloInit3(&handle);
  printf("   driver: KaloInit3(%s) = %u %s\n", name, (unsigned int)status, nameOf(status));
  return handle;
}

int main(void) {
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_30, 0};
  setvbuf(stdout, NULL, _IOLBF, 0);

  say("announce firmware API 3.0, then open two handles: each has its own connection");
  KaloStateInit(&params);
  void* first = openSession("first");
  void* second = openSession("second");

  say("a command on each; the software firmware echoes");
  command("first", first, 0x10, "play");
  command("second", second, 0x11, "pause");

  say("a reply with a negative status: the library reads 16 bytes of private data");
  command("first", first, 0x20, "key");

  say("the device is lost while the reply is read: the library reconnects, the driver sees "
      "nothing");
  command("first", first, 0x10, "seek");

  say("the device is lost and does not come back");
  command("second", second, 0x11, "stop");

  say("release both handles");
  printf("   driver: KaloCleanup3(first) = %u\n", (unsigned int)KaloCleanup3(first));
  printf("   driver: KaloCleanup3(second) = %u\n", (unsigned int)KaloCleanup3(second));
  return 0;
}
