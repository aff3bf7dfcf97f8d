// Runs the operations of instructions.cpp in other libraries.

#include <sstream>

#include "bench/counted.h"
#include "bench/free_device.h"
#include "bench/peers.h"

namespace {

using bench::Count;
using bench::kMessageLength;

constexpr int kLinesPerCommand = 5;

template <typename Operation>
auto FiveTimes(Operation operation) {
  return [operation] {
    for (int i = 0; i < kLinesPerCommand; ++i) operation();
  };
}

void BuildStream() {
  std::stringstream stream;
  stream << "StartIoEx3" << ':' << 36 << ": "
         << "InputBufferLength: " << kMessageLength << '\n';
}

}  // namespace

int main() {
  Count("nothing", [] {});
  Count("five_stringstreams", FiveTimes(BuildStream));

  bench::SpdlogPeer spdlog(bench::ScratchPath("spdlog"));
  Count("spdlog_filtered", [&] { spdlog.FilteredLine(kMessageLength); });
  Count("spdlog_five_lines", FiveTimes([&] { spdlog.WriteLine(kMessageLength); }));

  bench::GlogPeer glog(bench::ScratchPath("glog"));
  Count("glog_filtered", [&] { glog.FilteredLine(kMessageLength); });
  Count("glog_five_lines", FiveTimes([&] { glog.WriteLine(kMessageLength); }));

  bench::TpmPeer tpm;
  Count("tpm_exchange", [&] { tpm.Exchange(); });
  return 0;
}
