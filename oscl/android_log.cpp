#include "oscl/android_log.h"

#ifdef KALODLL_HOST_ANDROID_LOG

#include <cstdarg>
#include <cstdio>

// Weak, so that a definition in the program still takes precedence over the stand-in.
extern "C" __attribute__((weak)) int __android_log_print(int priority, const char* tag,
                                                         const char* format, ...);

namespace {

__attribute__((format(printf, 3, 4))) int PrintToStandardError(int priority, const char* tag,
                                                               const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  return length;
}

}  // namespace

namespace oscl {

AndroidLogFunction AndroidLog() {
  return __android_log_print != nullptr ? __android_log_print : PrintToStandardError;
}

}  // namespace oscl

#else

#include <android/log.h>

namespace oscl {

AndroidLogFunction AndroidLog() { return __android_log_print; }

}  // namespace oscl

#endif
