// A small driver that uses kalo::Client. It retries a command that was not sent, reports every
// other failure, and exits with 1 if a command finally failed.

#include <cstdio>
#include <cstring>

#include "api/kalo_client.h"

namespace {

constexpr unsigned kHeaderSize = 16, kMessageSize = 24;

// Sends a command. If it finally fails, prints a line on standard error and returns false.
bool Send(kalo::Client* client, unsigned char commandId, const char* body) {
  unsigned char request[kMessageSize] = {0, 0, 0, 0, commandId};
  unsigned char reply[kMessageSize];
  std::memcpy(request + kHeaderSize, body, std::strlen(body));
  kalo::Result result;
  for (int attempt = 0; attempt < 3; ++attempt) {
    result = client->Send(request, sizeof request, reply, sizeof reply);
    if (result.outcome != kalo::Outcome::kNotSent) break;
  }
  const bool isAnswer =
      std::memcmp(reply + kHeaderSize, request + kHeaderSize, kMessageSize - kHeaderSize) == 0;
  if (result.outcome == kalo::Outcome::kDone && isAnswer) {
    std::printf("command 0x%x: %s\n", commandId, body);
    return true;
  }
  std::fprintf(stderr, "command 0x%x failed: outcome %d, firmware status %d, %s\n", commandId,
               static_cast<int>(result.outcome), static_cast<int>(result.firmwareStatus),
               result.text.c_str());
  return false;
}

}  // namespace

int main() {
  kalo::Client client;
  bool isGood = Send(&client, 0x10, "play");
  isGood = Send(&client, 0x11, "pause") && isGood;
  isGood = Send(&client, 0x10, "seek") && isGood;
  return isGood ? 0 : 1;
}
