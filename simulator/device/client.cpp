#include "simulator/device/client.h"

#include <algorithm>
#include <utility>

#include "common/format.h"
#include "common/hex.h"
#include "common/input_error.h"
#include "common/text.h"

namespace zulisim {
namespace {

// The order of the bytes in a GUID's text. In memory, each of the first three fields begins with
// its lowest byte.
constexpr std::size_t kOrder[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

}  // namespace

std::vector<Client> DefaultClients() {
  return {{"KALO", ParseGuid("{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}")},
          {"FENU", ParseGuid("{B638AB7E-94E2-4EA2-A552-D1C54B627F04}")},
          {"SAB", ParseGuid("{F0752030-FA98-4BA7-9D7D-4B630BBFD64D}")}};
}

std::string GuidText(const Guid& guid) {
  std::string text = "{";
  for (std::size_t i = 0; i < guid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += common::Format("{:02X}", guid[kOrder[i]]);
  }
  return text + "}";
}

Guid ParseGuid(const std::string& text) {
  std::string digits = text;
  for (const char mark : {'{', '}', '-'}) {
    digits.erase(std::remove(digits.begin(), digits.end(), mark), digits.end());
  }
  Guid guid;
  const bool isHex = digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  if (!isHex || digits.size() != 2 * guid.size()) {
    throw common::InputError(common::Quoted(text) +
                             " is not a GUID; the form is {FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}");
  }
  const Bytes bytes = common::ParseHex(digits);
  for (std::size_t i = 0; i < guid.size(); ++i) guid[i] = bytes[kOrder[i]];
  return guid;
}

Reply EchoReply(const Bytes& request, std::uint32_t status, std::optional<Bytes> privateData) {
  Reply reply{request, std::move(privateData)};
  SetWordAt(&*reply.message, kStatusOffset, status);
  return reply;
}

}  // namespace zulisim
