#include "oscl/android_log.h"

#ifdef KALODLL_HOST_ANDROID_LOG

#include <cstdarg>
#include <cstdio>
#include <cstring>

// Weak, so that a definition in the program replaces it.
extern "C" __attribute__((weak)) int __android_log_print(int priority, const char* tag,
                                                         const char* format, ...);

namespace {

__attribute__((format(printf, 3, 4))) int PrintToStandardError(int, const char*, const char* format,
                                                               ...) {
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < 0) return length;
  // Each entry of Android's log is a line, even without a line feed.
  const size_t stored = std::strlen(text);
  const bool ended = stored > 0 && text[stored - 1] == '\n';
  return std::fprintf(stderr, ended ? "%s" : "%s\n", text);
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
