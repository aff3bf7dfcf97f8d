#pragma once

#include <string>

#include "common/hex.h"

namespace common {

// The SHA-256 digest of `bytes` from `offset` on, as 64 hexadecimal digits.
std::string Sha256(const Bytes& bytes, std::size_t offset = 0);

}  // namespace common
