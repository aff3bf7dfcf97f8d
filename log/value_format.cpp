#include "log/value_format.h"

#include <iomanip>

std::ostream& operator<<(std::ostream& stream, const _GUID& guid) {
  stream << '{' << std::hex << std::setfill('0') << std::setw(8) << guid.Data1 << ','
         << std::setw(4) << guid.Data2 << ',' << std::setw(4) << guid.Data3;
  for (const uint8_t byte : guid.Data4) {
    stream << ',' << std::setw(2) << static_cast<unsigned int>(byte);
  }
  return stream << '}' << std::dec;
}

void logBytesAsDwords(std::ostream& stream, const unsigned char* bytes, unsigned int length) {
  constexpr unsigned int kItemsPerLine = 8;
  constexpr unsigned int kBytesPerWord = 4;
  const unsigned int count = length / kBytesPerWord;
  stream << std::hex << std::endl;
  for (unsigned int i = 0; i < count; ++i) {
    // The output looks like words, but each is a single byte, printed as a character. Log readers
    // rely on this form.
    stream << std::setw(8) << std::setfill('0') << static_cast<char>(bytes[i]) << ' ';
    if ((i + 1) % kItemsPerLine == 0) stream << std::endl;
  }
  if (length % kBytesPerWord != 0) stream << std::setw(8) << std::setfill('0') << 0;
  stream << std::dec << std::endl;
}
