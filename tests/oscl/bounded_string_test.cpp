#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "oscl/bounded_string.h"

namespace {

// What the call returns, and leaves in a heap buffer of exactly `size` bytes, so that the address
// sanitizer sees the first byte beyond.
std::string Do(uint32_t size, const std::function<int32_t(char*)>& call) {
  const std::unique_ptr<char[]> buffer(new char[size]);
  std::fill_n(buffer.get(), size, '#');
  const int32_t result = call(buffer.get());
  return std::to_string(result) + std::string(buffer.get(), size);
}

TEST(BoundedStringTest, what_does_not_fit_is_refused_and_leaves_the_destination) {
  for (const uint32_t size : {0u, 3u, 4u, 5u}) {
    SCOPED_TRACE(size);
    const bool fits = size > 3;
    const std::string refused = "1" + std::string(size, '#');
    const std::string rest(fits ? size - 4 : 0, '#');
    const std::string whole = fits ? std::string("0abc\0", 5) + rest : refused;
    EXPECT_EQ(Do(size, [=](char* dst) { return strcpy_s(dst, size, "abc"); }), whole);
    EXPECT_EQ(Do(size, [=](char* dst) { return memcpy_s(dst, size, "abc", 4); }), whole);
    // The whole source must fit although only one character is asked for, and no NUL follows it.
    EXPECT_EQ(Do(size, [=](char* dst) { return strncpy_s(dst, size, "abc", 1); }),
              fits ? "0a###" + rest : refused);
    const auto append = [=](char* dst) { return strcat_s(std::strcpy(dst, "ab"), size, "c"); };
    if (size == 0) continue;
    EXPECT_EQ(Do(size, append), fits ? whole : std::string("1ab\0", 4));
  }
  EXPECT_EQ(Do(5, [](char* dst) { return strncpy_s(dst, 5, "ab", 5); }),
            std::string("0ab\0\0\0", 6));
}

TEST(BoundedStringTest, formatting_is_limited_by_the_size_and_tells_the_full_length) {
  for (const uint32_t size : {1u, 8u, 9u, 10u}) {
    const auto print = [=](char* dst) { return _snprintf_s(dst, size, 1, "%d", 123456789); };
    EXPECT_EQ(Do(size, print), "9" + std::string("123456789").substr(0, size - 1) + '\0');
  }
  for (const uint32_t count : {9u, 0u}) {
    EXPECT_EQ(Do(8, [=](char* dst) { return _sntprintf_s(dst, 8, count, "%d", 7); }), "1########");
  }
}

TEST(BoundedStringTest, streams_and_times_come_from_libc) {
  FILE* file = stdout;
  EXPECT_EQ(fopen_s(&file, "/nonexistent/file", "r"), ENOENT);
  EXPECT_EQ(file, nullptr);
  const time_t moment = 86400;
  struct tm local = {};
  EXPECT_EQ(localtime_s(&local, &moment), 0);
  EXPECT_EQ(mktime(&local), moment);
  EXPECT_EQ(localtime_s(nullptr, &moment), 1);
}

}  // namespace
