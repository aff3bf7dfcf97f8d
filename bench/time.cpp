// Measures times with google-benchmark. scripts/bench.sh computes ratios from them.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/free_device.h"
#include "bench/library_driver.h"
#include "bench/peers.h"
#include "transport/client_session.h"
#include "transport/zuli_device.h"

namespace {

using bench::kMessageLength;

constexpr char kSampleLine[] = "StartIoEx3:36: InputBufferLength: 64\n";
constexpr int kLinesPerCommand = 5;

// Makes the system calls of a command directly: writes five lines to each file, then exchanges a
// message.
class Loop {
 public:
  explicit Loop(size_t files) : device_(open("/dev/zuli", O_RDWR)) {
    ZuliConnectRecord record{ClientSession::KALO_CLIENT_GUID};
    Check(ioctl(device_, IOCTL_ZULI_CONNECT_CLIENT, &record));
    for (size_t i = 0; i < files; ++i) {
      files_.push_back(open(bench::ScratchPath("loop").c_str(),
                            O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    }
  }
  ~Loop() {
    for (const int file : files_) close(file);
    close(device_);
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  void WriteLine() {
    for (const int file : files_) Check(write(file, kSampleLine, sizeof kSampleLine - 1));
  }

  void Exchange() {
    unsigned char message[kMessageLength] = {0};
    Check(write(device_, message, sizeof message));
    Check(read(device_, message, sizeof message));
  }

  void Run() {
    for (int i = 0; i < kLinesPerCommand; ++i) WriteLine();
    Exchange();
  }

 private:
  static void Check(ssize_t result) {
    if (result >= 0) return;
    std::perror("a system call of the loop failed");
    std::exit(1);
  }

  int device_;
  std::vector<int> files_;
};

void OneSink(const benchmark::State&) { bench::SetFileSinks(1); }
void NullSink(const benchmark::State&) { bench::SetNullSink(); }
void ManySinks(const benchmark::State& state) {
  bench::SetFileSinks(static_cast<size_t>(state.range(0)));
}

void BareCommand(benchmark::State& state) {
  bench::ConnectedSession session;
  for (auto _ : state) bench::Command(session.handle());
}

void TpmExchange(benchmark::State& state) {
  bench::TpmPeer peer;
  for (auto _ : state) peer.Exchange();
}

void Line(benchmark::State& state) {
  for (auto _ : state) bench::WriteLine(kMessageLength);
}

void LineBare(benchmark::State& state) {
  Loop loop(1);
  for (auto _ : state) loop.WriteLine();
}

bench::SpdlogPeer& Spdlog() {
  static bench::SpdlogPeer peer(bench::ScratchPath("spdlog"));
  return peer;
}

bench::GlogPeer& Glog() {
  static bench::GlogPeer peer(bench::ScratchPath("glog"));
  return peer;
}

void LineSpdlog(benchmark::State& state) {
  for (auto _ : state) Spdlog().WriteLine(kMessageLength);
}

void LineGlog(benchmark::State& state) {
  for (auto _ : state) Glog().WriteLine(kMessageLength);
}

// Each thread uses its own handle.
void Command(benchmark::State& state) {
  bench::ConnectedSession session;
  for (auto _ : state) bench::Command(session.handle());
}

void CommandLoop(benchmark::State& state) {
  Loop loop(static_cast<size_t>(state.range(0)));
  for (auto _ : state) loop.Run();
}

void CommandLines(benchmark::State& state, const std::vector<bench::LoggedLine>& lines) {
  for (auto _ : state) bench::WriteLines(lines);
}

// Requires a process in which no sink was ever registered.
void RegisterBare() {
  benchmark::RegisterBenchmark("bare/command", BareCommand);
  benchmark::RegisterBenchmark("bare/tpm", TpmExchange);
}

void RegisterLines() {
  benchmark::RegisterBenchmark("line/kalodll", Line)->Setup(OneSink);
  benchmark::RegisterBenchmark("line/spdlog", LineSpdlog);
  benchmark::RegisterBenchmark("line/glog", LineGlog);
  benchmark::RegisterBenchmark("line/write", LineBare);
}

void RegisterCommands() {
  for (const int sinks : {1, 8, 64}) {
    benchmark::RegisterBenchmark("command", Command)->Arg(sinks)->Setup(ManySinks);
    benchmark::RegisterBenchmark("loop", CommandLoop)->Arg(sinks);
  }
  for (const int threads : {2, 4}) {
    benchmark::RegisterBenchmark("parallel/command", Command)
        ->Arg(1)
        ->Setup(ManySinks)
        ->Threads(threads)
        ->UseRealTime();
    benchmark::RegisterBenchmark("parallel/loop", CommandLoop)
        ->Arg(1)
        ->Threads(threads)
        ->UseRealTime();
  }
}

// Measures the parts of a command that RegisterCommands does not measure.
void RegisterParts() {
  benchmark::RegisterBenchmark("part/exchange", CommandLoop)->Arg(0);
  bench::ConnectedSession session;
  const auto lines = bench::RecordLines([&] { bench::Command(session.handle()); });
  benchmark::RegisterBenchmark("part/lines_dropped", CommandLines, lines)->Setup(NullSink);
  benchmark::RegisterBenchmark("part/lines", CommandLines, lines)->Setup(OneSink);
}

// Uses the kernel's "/dev/zuli", not the one answered from memory.
void RegisterDevice() {
  bench::ServeZuli(false);
  // Wall-clock time, because most of an exchange happens outside this process.
  benchmark::RegisterBenchmark("device/command", Command)->Arg(1)->Setup(ManySinks)->UseRealTime();
  benchmark::RegisterBenchmark("device/loop", CommandLoop)->Arg(1)->UseRealTime();
}

// Registers one group. Each process can run only one.
bool Register(const char* group) {
  if (std::strcmp(group, "bare") == 0) {
    RegisterBare();
  } else if (std::strcmp(group, "sinks") == 0) {
    RegisterLines();
    RegisterCommands();
    RegisterParts();
  } else if (std::strcmp(group, "device") == 0) {
    RegisterDevice();
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc != 2 || !Register(argv[1])) {
    std::fprintf(stderr, "usage: %s bare|sinks|device [--benchmark_...]\n", argv[0]);
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
