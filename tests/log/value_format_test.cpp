// Tests the printers of GUIDs and byte buffers: their exact output with each flush, and the flags
// of the stream afterwards.

#include "log/value_format.h"
#include "tests/support/standard_headers.h"

#include <iomanip>
#include <numeric>

namespace {

// Shows each flush as '^'.
struct FlushedBuffer : std::stringbuf {
  int sync() override { return sputc('^') == '^' ? 0 : -1; }
};

TEST(Printers, have_a_fixed_output_and_leave_decimal_numbers_and_zero_fill) {
  FlushedBuffer buffer;
  std::ostream stream(&buffer);
  const _GUID guid{0x0FB1C2D3, 0xAB, 0xCDE, {1, 2, 3, 4, 5, 6, 7, 8}};
  stream << std::oct << std::setfill('*') << guid << std::setw(4) << 26;
  for (const unsigned int length : {0, 3, 6, 32, 36}) {
    // Holds only the part that the printer reads: the first quarter of the buffer.
    std::vector<unsigned char> bytes(length / 4);
    std::iota(bytes.begin(), bytes.end(), 'A');
    logBytesAsDwords(stream << std::setfill(' '), bytes.data(), length);
    stream << std::setw(3) << 26;
  }
  const std::string eight =
      "0000000A 0000000B 0000000C 0000000D 0000000E 0000000F 0000000G 0000000H ";
  EXPECT_EQ(buffer.str(),
            "{0fb1c2d3,00ab,0cde,01,02,03,04,05,06,07,08}0026"
            "\n^\n^ 26"  // the fill character is not changed
            "\n^00000000\n^026\n^0000000A 00000000\n^026\n^" +
                eight + "\n^\n^026\n^" + eight + "\n^0000000I \n^026");
}

}  // namespace
