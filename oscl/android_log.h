#pragma once

namespace oscl {

using AndroidLogFunction = int (*)(int priority, const char* tag, const char* format, ...);

constexpr int kAndroidLogDebug = 3;

// The process's __android_log_print, or a stand-in that writes to standard error where the host has
// none. Any thread.
AndroidLogFunction AndroidLog();

}  // namespace oscl
