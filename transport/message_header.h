#pragma once

/* The start of every message, for C and C++. */

#include <stdint.h>

/* Four little-endian words. The body that follows, and the meaning of word0 and word3, belong to
 * the driver and the firmware. */
typedef struct KaloMessageHeader {
  uint32_t word0;
  /* Chooses the firmware client. */
  uint32_t commandId;
  /* In a reply: negative means that a private-data block follows. */
  int32_t status;
  uint32_t word3;
} KaloMessageHeader;

#ifdef __cplusplus
#include <cstring>

static_assert(sizeof(KaloMessageHeader) == 16, "the header is part of the device protocol");

namespace transport {

// The header of a message of at least 16 bytes, at any alignment.
inline KaloMessageHeader HeaderOf(const unsigned char* message) {
  KaloMessageHeader header;
  std::memcpy(&header, message, sizeof header);
  return header;
}

}  // namespace transport
#endif
