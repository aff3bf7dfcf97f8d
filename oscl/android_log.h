#pragma once

namespace oscl {

using AndroidLogFunction = int (*)(int priority, const char* tag, const char* format, ...);

constexpr int kAndroidLogDebug = 3;

// Returns the process's __android_log_print, or a substitute that writes to standard error if the
// host has none. Any thread.
AndroidLogFunction AndroidLog();

}  // namespace oscl
