#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "oscl/bounded_string.h"
#include "oscl/timing.h"

namespace {

unsigned slept = 0;  // microseconds

}  // namespace

// This program replaces the function that sleeps.
extern "C" int usleep(unsigned duration) {
  slept += duration;
  return 0;
}

namespace {

// Returns the result of the call and the buffer's content. The buffer is on the heap and has
// exactly `size` bytes, so the address sanitizer detects any access beyond it.
std::string Do(uint32_t size, const std::function<int32_t(char*)>& call) {
  const std::unique_ptr<char[]> buffer(new char[size]);
  std::fill_n(buffer.get(), size, '#');
  const int32_t result = call(buffer.get());
  return std::to_string(result) + std::string(buffer.get(), size);
}

TEST(BoundedStringTest, text_that_does_not_fit_is_refused_and_not_copied) {
  EXPECT_EQ(Do(4, [](char* dst) { return strcpy_s(dst, 4, "abc"); }), std::string("0abc\0", 5));
  EXPECT_EQ(Do(3, [](char* dst) { return strcpy_s(dst, 3, "abc"); }), "1###");
  EXPECT_EQ(Do(4, [](char* dst) { return memcpy_s(dst, 4, "abcd", 4); }), "0abcd");
  EXPECT_EQ(Do(3, [](char* dst) { return memcpy_s(dst, 3, "abcd", 4); }), "1###");
  // The whole source must fit, even if fewer characters are requested. No NUL is added.
  EXPECT_EQ(Do(4, [](char* dst) { return strncpy_s(dst, 4, "abc", 1); }), "0a###");
  EXPECT_EQ(Do(3, [](char* dst) { return strncpy_s(dst, 3, "abc", 1); }), "1###");
  const auto append = [](char* dst) { return strcat_s(std::strcpy(dst, "ab"), 3, "c"); };
  EXPECT_EQ(Do(3, append), std::string("1ab\0", 4));
  const auto fill = [](char* dst) { return strcat_s(std::strcpy(dst, "ab"), 4, "c"); };
  EXPECT_EQ(Do(4, fill), std::string("0abc\0", 5));
  char text[4] = {};
  for (const int32_t result :
       {strcpy_s(nullptr, 3, "c"), strcpy_s(text, 3, nullptr), strncpy_s(nullptr, 3, "c", 1),
        strncpy_s(text, 3, nullptr, 1), strcat_s(nullptr, 3, "c"), strcat_s(text, 3, nullptr),
        memcpy_s(nullptr, 3, "c", 1), memcpy_s(text, 3, nullptr, 1),
        _snprintf_s(nullptr, 3, 3, "c")}) {
    EXPECT_EQ(result, 1);
  }
  // Only the size limits the output, not the count.
  const auto print = [](char* dst) { return _snprintf_s(dst, 8, 1, "%d", 123456789); };
  EXPECT_EQ(Do(8, print), std::string("91234567\0", 9));
  EXPECT_EQ(Do(8, [](char* dst) { return _sntprintf_s(dst, 8, 9, "%d", 7); }), "1########");
  EXPECT_EQ(Do(8, [](char* dst) { return _sntprintf_s(dst, 8, 0, "%d", 7); }), "1########");
}

// Fortified calls would end the process for such a format.
TEST(BoundedStringTest, formats_give_the_result_of_vsnprintf) {
  char second[] = "%2$s";
  EXPECT_EQ(Do(3, [&](char* dst) { return _snprintf_s(dst, 3, 1, second, "a", "b"); }),
            std::string("1b\0#", 4));
#ifndef __ANDROID__  // Android's vsnprintf refuses it
  char count[] = "ab%n";
  int32_t written = 0;
  EXPECT_EQ(Do(3, [&](char* dst) { return _sntprintf_s(dst, 3, 1, count, &written); }),
            std::string("2ab\0", 4));
  EXPECT_EQ(written, 2);
#endif
}

TEST(BoundedStringTest, times_and_pauses_come_from_libc) {
  const time_t moment = 86400;
  struct tm local = {};
  EXPECT_EQ(localtime_s(&local, &moment), 0);
  EXPECT_EQ(mktime(&local), moment);
  EXPECT_EQ(localtime_s(nullptr, &moment), 1);
  Sleep(1);
  OSCL_SleepMs(2);
  EXPECT_EQ(slept, 3u);
}

}  // namespace
