#pragma once

/* The start of every message, for C and C++. */

#include <stdint.h>

/* Four little-endian words. The driver and the firmware define the meaning of word0, word3 and the
 * body that follows. */
typedef struct KaloMessageHeader {
  uint32_t word0;
  /* Selects the firmware client. */
  uint32_t commandId;
  /* In a reply: if negative, a private-data block follows. */
  int32_t status;
  uint32_t word3;
} KaloMessageHeader;

#ifdef __cplusplus
#include <cstring>

static_assert(sizeof(KaloMessageHeader) == 16, "the header is part of the device protocol");

namespace transport {

// Returns the header of a message of at least 16 bytes at any alignment.
inline KaloMessageHeader HeaderOf(const unsigned char* message) {
  KaloMessageHeader header;
  std::memcpy(&header, message, sizeof header);
  return header;
}

}  // namespace transport
#endif
