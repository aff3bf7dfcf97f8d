#pragma once

#include <string>

#include "common/hex.h"

namespace common {

// The SHA-256 digest of `bytes` from `offset` on, as 64 hexadecimal digits. Our own, because
// drivers are recorded on Android, where a program has no library for it.
std::string Sha256(const Bytes& bytes, std::size_t offset = 0);

}  // namespace common
