// The wrapper of the version-3 calls: what each outcome leaves with its caller, and which clients
// share what.

#include "api/kalo_client.h"

#include <thread>

#include "tests/support/library_test.h"

namespace test {
namespace {

class Clients : public LibraryTest {};

// Under the thread sanitizer: nothing of one firmware is touched on behalf of the other.
TEST_F(Clients, of_both_firmwares_open_send_and_close_in_threads_of_their_own) {
  const auto drive = [](kalo::Firmware firmware, uint32_t command) {
    for (int i = 0; i < 200; ++i) {
      kalo::Client client(firmware);
      Bytes request = Message(command), reply(32);
      EXPECT_EQ(client.Send(request.data(), 32, reply.data(), 32).outcome, kalo::Outcome::kDone);
      EXPECT_EQ(reply, request);
    }
  };
  std::thread display(drive, kalo::Firmware::kFenu, 0x30000);
  drive(kalo::Firmware::kKalo, 0x10);
  display.join();
}

}  // namespace
}  // namespace test
