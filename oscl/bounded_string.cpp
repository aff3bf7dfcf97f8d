#include "oscl/bounded_string.h"

#include <errno.h>
#include <stdarg.h>
#include <string.h>

namespace {

constexpr int32_t kDone = 0;
constexpr int32_t kRefused = 1;

__attribute__((format(printf, 4, 0))) int32_t Print(char* dst, uint32_t dstSize, uint32_t count,
                                                    const char* format, va_list arguments) {
  if (dst == nullptr || format == nullptr || count == 0 || count > dstSize) return kRefused;
  // Contract: the limit is the whole buffer; `count` is only checked.
  return vsnprintf(dst, dstSize, format, arguments);
}

}  // namespace

int32_t strcpy_s(char* dst, uint32_t dstSize, const char* src) {
  if (dst == nullptr || src == nullptr) return kRefused;
  const size_t length = strlen(src);
  if (dstSize <= length) return kRefused;
  memcpy(dst, src, length + 1);
  return kDone;
}

int32_t strncpy_s(char* dst, uint32_t dstSize, const char* src, uint32_t count) {
  // Contract: compares the whole source with dstSize, but not `count`.
  if (dst == nullptr || src == nullptr || dstSize <= strlen(src)) return kRefused;
  strncpy(dst, src, count);
  return kDone;
}

int32_t strcat_s(char* dst, uint32_t dstSize, const char* src) {
  if (dst == nullptr || src == nullptr) return kRefused;
  const size_t used = strlen(dst);
  const size_t length = strlen(src);
  if (used + length >= dstSize) return kRefused;
  memcpy(dst + used, src, length + 1);
  return kDone;
}

int32_t memcpy_s(void* dst, uint32_t dstSize, const void* src, uint32_t count) {
  if (dst == nullptr || src == nullptr || dstSize < count) return kRefused;
  memcpy(dst, src, count);
  return kDone;
}

int32_t _snprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int32_t result = Print(dst, dstSize, count, format, arguments);
  va_end(arguments);
  return result;
}

int32_t _sntprintf_s(char* dst, uint32_t dstSize, uint32_t count, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int32_t result = Print(dst, dstSize, count, format, arguments);
  va_end(arguments);
  return result;
}

int32_t fopen_s(FILE** file, const char* path, const char* mode) {
  errno = 0;
  *file = fopen(path, mode);
  return *file != nullptr ? kDone : errno;
}

int32_t localtime_s(struct tm* dst, const time_t* time) {
  const struct tm* local = localtime(time);
  if (local == nullptr) return kRefused;
  static_assert(sizeof(struct tm) == 56, "the record that callers hold");
  return memcpy_s(dst, sizeof *dst, local, sizeof *local);
}
