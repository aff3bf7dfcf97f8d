#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "oscl/bounded_string.h"

namespace {

// A heap buffer of exactly `size` bytes, so that the address sanitizer sees the first byte beyond.
class ExactBuffer {
 public:
  explicit ExactBuffer(uint32_t size) : bytes_(new char[size]), size_(size) {
    std::memset(bytes_.get(), '#', size);
  }
  char* get() { return bytes_.get(); }
  std::string content() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  uint32_t size_;
};

std::string Terminated(const char* text, uint32_t size) {
  std::string expected(text);
  expected += '\0';
  expected.resize(size, '#');
  return expected;
}

TEST(BoundedStringTest, copies_refuse_what_does_not_fit_and_leave_the_destination) {
  for (uint32_t size : {0u, 3u, 4u, 5u}) {
    SCOPED_TRACE(size);
    const bool fits = size >= 4;
    const std::string untouched(size, '#');
    ExactBuffer copied(size);
    EXPECT_EQ(strcpy_s(copied.get(), size, "abc"), fits ? 0 : 1);
    EXPECT_EQ(copied.content(), fits ? Terminated("abc", size) : untouched);
    // The whole source must fit although only one character is asked for, and no NUL follows it.
    ExactBuffer first(size);
    EXPECT_EQ(strncpy_s(first.get(), size, "abc", 1), fits ? 0 : 1);
    EXPECT_EQ(first.content(), fits ? "a" + std::string(size - 1, '#') : untouched);
    ExactBuffer moved(size);
    EXPECT_EQ(memcpy_s(moved.get(), size, "abc", 4), fits ? 0 : 1);
    EXPECT_EQ(moved.content(), fits ? Terminated("abc", size) : untouched);
  }
  ExactBuffer padded(5);
  EXPECT_EQ(strncpy_s(padded.get(), 5, "ab", 5), 0);
  EXPECT_EQ(padded.content(), std::string("ab\0\0\0", 5));
}

TEST(BoundedStringTest, appending_needs_room_for_both_texts_and_the_nul) {
  for (uint32_t size : {3u, 4u, 5u}) {
    ExactBuffer buffer(size);
    std::strcpy(buffer.get(), "ab");
    EXPECT_EQ(strcat_s(buffer.get(), size, "c"), size > 3 ? 0 : 1);
    EXPECT_EQ(buffer.content(), Terminated(size > 3 ? "abc" : "ab", size));
  }
}

TEST(BoundedStringTest, formatting_is_limited_by_the_size_and_tells_the_full_length) {
  for (uint32_t size : {1u, 8u, 9u, 10u, 11u}) {
    ExactBuffer buffer(size);
    EXPECT_EQ(_snprintf_s(buffer.get(), size, 1, "%d", 123456789), 9) << size;
    EXPECT_EQ(buffer.get(), std::string("123456789").substr(0, size - 1));
  }
  ExactBuffer refused(8);
  EXPECT_EQ(_sntprintf_s(refused.get(), 8, 9, "%d", 7), 1);
  EXPECT_EQ(_sntprintf_s(refused.get(), 8, 0, "%d", 7), 1);
  EXPECT_EQ(_sntprintf_s(refused.get(), 0, 0, "%d", 7), 1);
  EXPECT_EQ(refused.content(), "########");
}

TEST(BoundedStringTest, streams_and_times_come_from_libc) {
  FILE* file = stdout;
  EXPECT_EQ(fopen_s(&file, "/nonexistent/file", "r"), ENOENT);
  EXPECT_EQ(file, nullptr);
  ASSERT_EQ(fopen_s(&file, "/dev/null", "r"), 0);
  fclose(file);
  const time_t moment = 86400;
  struct tm local = {};
  EXPECT_EQ(localtime_s(&local, &moment), 0);
  EXPECT_EQ(mktime(&local), moment);
  EXPECT_EQ(localtime_s(nullptr, &moment), 1);
}

}  // namespace
