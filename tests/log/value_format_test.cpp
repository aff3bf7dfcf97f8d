// Tests the printers of GUIDs and byte buffers: their exact output, and the flags of the stream
// afterwards.

#include "log/value_format.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <memory>
#include <sstream>

namespace {

const std::string kZeros(7, '0');

std::string Dump(unsigned int length) {
  // Allocates only the part that the printer reads: the first quarter of the buffer.
  const std::unique_ptr<unsigned char[]> bytes(new unsigned char[length / 4]);
  for (unsigned int i = 0; i < length / 4; ++i) bytes[i] = static_cast<unsigned char>('A' + i);
  std::ostringstream stream;
  logBytesAsDwords(stream, bytes.get(), length);
  stream << std::setw(3) << 26;
  return stream.str();
}

TEST(Guid, prints_in_fixed_width_and_leaves_decimal_and_zero_fill) {
  const _GUID guid{0x0FB1C2D3, 0xAB, 0xCDE, {1, 2, 3, 4, 5, 6, 7, 8}};
  std::ostringstream stream;
  stream << std::oct << std::setfill('*') << guid << std::setw(4) << 26;
  EXPECT_EQ(stream.str(), "{0fb1c2d3,00ab,0cde,01,02,03,04,05,06,07,08}0026");
}

TEST(Dump, prints_a_quarter_of_the_bytes_as_characters) {
  EXPECT_EQ(Dump(0), "\n\n 26");  // the fill character is not changed
  EXPECT_EQ(Dump(3), "\n00000000\n026");
  EXPECT_EQ(Dump(6), "\n" + kZeros + "A 00000000\n026");
  std::string eight;
  for (char c = 'A'; c <= 'H'; ++c) eight += kZeros + c + ' ';
  EXPECT_EQ(Dump(32), "\n" + eight + "\n\n026");
  EXPECT_EQ(Dump(36), "\n" + eight + "\n" + kZeros + "I \n026");
}

}  // namespace
