#pragma once

#include <fcntl.h>

#include <random>
#include <string>

#include "common/format.h"
#include "common/hex.h"
#include "simulator/device/device.h"

namespace zulisim {

// A thread of a program, with one connection at a time. The seed, the number and the device's
// results determine its calls. Drivers with the same seed begin with the same calls.
class RandomDriver {
 public:
  RandomDriver(Device* device, unsigned seed, int number)
      : device_(device), seed_(seed), number_(number), random_(seed) {}

  // Makes one call.
  void Step() {
    SetCaller(1, number_);
    if (++steps_ == 6) random_.seed(seed_ * 100 + static_cast<unsigned>(number_));
    if (connection_ == 0) {
      // The number of the connection depends on the other drivers.
      const Result opened = device_->Open(O_RDWR, 0, -1);
      if (opened.error == 0) connection_ = static_cast<std::uint64_t>(opened.value);
      Keep({0, opened.error});
      connected_ = false;
    } else if ((!good_ && Draw(2) == 0) || Draw(12) == 0) {
      Keep(device_->Close(connection_, CloseReason::kProgramClosed));
      connection_ = 0;
    } else if (!connected_) {
      Guid guid =
          DefaultClients()[(static_cast<unsigned>(number_) + (Draw(4) == 0 ? 1 : 0)) % 2].guid;
      Keep(device_->Ioctl(connection_, kConnectRequest, guid.data()), {guid.begin(), guid.end()});
      connected_ = good_;
    } else if (Draw(5) < 2) {
      Bytes request(16 + 4 * Draw(4), 0);
      SetWordAt(&request, 0, Draw(3));
      SetWordAt(&request, kCommandIdOffset, 0x10 + Draw(3));
      if (request.size() > kHeaderSize) request.back() = static_cast<std::uint8_t>(Draw(256));
      Keep(device_->Write(connection_, request.data(), request.size()));
    } else {
      Bytes reply(Draw(6) == 0 ? Draw(32) : 64, 0);
      const Result result = device_->Read(connection_, reply.data(), reply.size(), false);
      Keep(result, reply);
    }
    SetCaller(0, 0);
  }
  // The results of all calls.
  const std::string& Got() const { return got_; }

 private:
  unsigned Draw(unsigned count) { return static_cast<unsigned>(random_() % count); }
  void Keep(const Result& result, const Bytes& bytes = {}) {
    good_ = result.error == 0;
    got_ += common::Format("{}/{} {}\n", result.value, result.error, common::HexDigits(bytes));
  }

  Device* const device_;
  const unsigned seed_;
  const int number_;
  std::mt19937 random_;
  int steps_ = 0;
  std::uint64_t connection_ = 0;
  bool connected_ = false;
  bool good_ = true;
  std::string got_;
};

// Runs `count` drivers, which take their steps in an order that `order` determines. Returns the
// results of each.
inline std::vector<std::string> RunDrivers(Device* device, int count, unsigned seed,
                                           unsigned order) {
  std::vector<RandomDriver> drivers;
  for (int number = 1; number <= count; ++number) drivers.emplace_back(device, seed, number);
  std::vector<std::size_t> turns;
  for (std::size_t step = 0; step < 24 * drivers.size(); ++step) {
    turns.push_back(step % drivers.size());
  }
  std::mt19937 random(order);
  std::shuffle(turns.begin(), turns.end(), random);
  for (const std::size_t turn : turns) drivers[turn].Step();
  std::vector<std::string> got;
  for (const RandomDriver& driver : drivers) got.push_back(driver.Got());
  return got;
}

}  // namespace zulisim
