#include "oscl/memory.h"

#include <cstdlib>
#include <cstring>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"

int32_t gAllocationCount = 0;

namespace {

void CountBlocks(int32_t change) {
  __atomic_fetch_add(&gAllocationCount, change, __ATOMIC_RELAXED);
}

}  // namespace

void* AllocMem(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) {
    oscl::SetLastErrorCode(OSCL_ERROR_NO_MEMORY);
    return nullptr;
  }
  CountBlocks(1);
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return block;
}

void* AllocAndZeroMem(size_t size) {
  void* block = AllocMem(size);
  // Contract: the length has 32 bits.
  if (block != nullptr) ZeroMemory(block, static_cast<uint32_t>(size));
  return block;
}

void FreeMem(void* block) {
  if (block == nullptr) return;
  std::free(block);
  CountBlocks(-1);
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

void ZeroMemory(void* dst, uint32_t length) { FillMemory(dst, length, 0); }

void FillMemory(void* dst, uint32_t length, uint32_t value) {
  if (dst != nullptr) std::memset(dst, static_cast<uint8_t>(value), length);
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

int32_t CopyMemory(void* dst, const void* src, uint32_t length) {
  const int32_t refused = memcpy_s(dst, length, src, length);
  oscl::SetLastErrorCode(refused != 0 ? OSCL_ERROR_INVALID_PARAMETER : OSCL_ERROR_SUCCESS);
  return refused;
}
