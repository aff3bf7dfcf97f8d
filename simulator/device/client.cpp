#include "simulator/device/client.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/hex.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {

std::vector<Client> DefaultClients() {
  Client kalo;
  kalo.name = "KALO";
  kalo.guid = {0xf1, 0xfc, 0xf6, 0xfb, 0xcf, 0x96, 0x2e, 0x4e,
               0xa6, 0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1};
  Client fenu;
  fenu.name = "FENU";
  fenu.guid = {0x7e, 0xab, 0x38, 0xb6, 0xe2, 0x94, 0xa2, 0x4e,
               0xa5, 0x52, 0xd1, 0xc5, 0x4b, 0x62, 0x7f, 0x04};
  Client sab;
  sab.name = "SAB";
  sab.guid = {0x30, 0x20, 0x75, 0xf0, 0x98, 0xfa, 0xa7, 0x4b,
              0x9d, 0x7d, 0x4b, 0x63, 0x0b, 0xbf, 0xd6, 0x4d};
  return {kalo, fenu, sab};
}

std::string GuidText(const Guid& guid) {
  const auto b = [&guid](std::size_t i) { return static_cast<unsigned>(guid[i]); };
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(),
                "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b(3),
                b(2), b(1), b(0), b(5), b(4), b(7), b(6), b(8), b(9), b(10), b(11), b(12), b(13),
                b(14), b(15));
  return text.data();
}

Guid ParseGuid(const std::string& text) {
  // Field by field: the first three begin with their lowest byte in memory.
  constexpr std::size_t kOrder[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  std::string digits = text;
  for (const char mark : {'{', '}', '-'}) {
    digits.erase(std::remove(digits.begin(), digits.end(), mark), digits.end());
  }
  Guid guid;
  const bool isHex = digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  if (!isHex || digits.size() != 2 * guid.size()) {
    throw common::InputError(common::Quoted(text) + " is not a GUID; the form is " +
                             GuidText(DefaultClients().front().guid));
  }
  const Bytes bytes = common::ParseHex(digits);
  for (std::size_t i = 0; i < guid.size(); ++i) guid[i] = bytes[kOrder[i]];
  return guid;
}

Reply EchoReply(const Bytes& request, std::uint32_t status) {
  Reply reply;
  reply.message = request;
  SetWordAt(&*reply.message, kStatusOffset, status);
  return reply;
}

Reply EchoReply(const Bytes& request, std::uint32_t status, Bytes privateData) {
  Reply reply = EchoReply(request, status);
  reply.privateData = std::move(privateData);
  return reply;
}

}  // namespace zulisim
