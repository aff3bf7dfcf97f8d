#include "oscl/bounded_string.h"
#include "tests/support/standard_headers.h"

namespace {

using namespace std::string_literals;

// Calls the function for a buffer that begins with "ab", and returns its result and the buffer's
// content. The buffer is on the heap, so the address sanitizer detects any access beyond it.
template <typename Function, typename... Arguments>
std::string Do(uint32_t size, Function function, Arguments... arguments) {
  EXPECT_EQ(function(nullptr, size, arguments...), 1);
  const std::unique_ptr<char[]> buffer(new char[size]);
  "ab\0#####"s.copy(buffer.get(), size);
  const int32_t result = function(buffer.get(), size, arguments...);
  return std::to_string(result) + std::string(buffer.get(), size);
}

TEST(BoundedStringTest, text_that_does_not_fit_is_refused_and_not_copied) {
  EXPECT_EQ(Do(4, strcpy_s, "cde"), "0cde\0"s);
  EXPECT_EQ(Do(4, memcpy_s, "cdef", 4), "0cdef");
  EXPECT_EQ(Do(4, strncpy_s, "cde", 1), "0cb\0#"s) << "no NUL is added";
  EXPECT_EQ(Do(4, strcat_s, "c"), "0abc\0"s);
  // Only the size limits the output, not the count.
  EXPECT_EQ(Do(8, _snprintf_s, 1, "%d", 123456789), "91234567\0"s);
  // A fortified call would end the process for such a format.
  char second[] = "%2$s";
  EXPECT_EQ(Do(4, _sntprintf_s, 4, second, "c", "d"), "1d\0\0#"s);
  for (const std::string& result :
       {Do(3, strcpy_s, "cde"), Do(3, memcpy_s, "cdef", 4), Do(3, strcat_s, "c"),
        // The whole source must fit, even if fewer characters are requested.
        Do(3, strncpy_s, "cde", 1), Do(3, _snprintf_s, 4, "%d", 7), Do(3, _sntprintf_s, 0, "%d", 7),
        Do(3, strcpy_s, nullptr), Do(3, memcpy_s, nullptr, 1), Do(3, strcat_s, nullptr),
        Do(3, strncpy_s, nullptr, 1), Do(3, _snprintf_s, 3, nullptr)}) {
    EXPECT_EQ(result, "1ab\0"s);
  }
}

}  // namespace
