/* A C driver on a machine without the device: every status and header word comes from the package. */
#include <stdio.h>
#include <string.h>

#include "api/kalo_dll.h"
#include "oscl/bounded_string.h"
#include "oscl/critical_section.h"
#include "oscl/inert.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "oscl/timing.h"
#include "oscl/user_feature.h"
#include "oscl/whole_file.h"

static int failures = 0;

static void expect(const char* what, unsigned int expected, unsigned int actual) {
  if (expected == actual) return;
  printf("%s: %u where %u is meant\n", what, actual, expected);
  ++failures;
}

int main(void) {
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_32, 0};
  void* handle = NULL;
  unsigned char message[16] = {0};
  char text[4];

  expect("KaloStateInit", KALO_DLL_STATUS_SUCCESS, KaloStateInit(&params));
  expect("KaloInit3 without a device", KALO_DLL_STATUS_FAILURE, KaloInit3(&handle));
  expect("StartIoEx3 without a handle", KALO_DLL_STATUS_INVALID_PARAMETER,
         StartIoEx3(handle, message, sizeof message, message, sizeof message, NULL, NULL));
  expect("StartIo before KaloInit", KALO_DLL_STATUS_NOT_INITIALIZED,
         StartIo(message, sizeof message, message, sizeof message));
  expect("FenuCleanup", KALO_DLL_STATUS_SUCCESS, FenuCleanup());
  expect("strcpy_s of three characters into three", 1, (unsigned int)strcpy_s(text, 3, "abc"));
  expect("RegCloseKey_Linux", OSCL_ERROR_SUCCESS, RegCloseKey_Linux(1));
  puts(failures == 0 ? "C driver: as expected" : "C driver: FAILED");
  return failures != 0;
}
