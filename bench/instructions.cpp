// Runs the operations of bench/instructions.txt. scripts/instructions.sh counts their instructions.

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "bench/counted.h"
#include "bench/free_device.h"
#include "bench/library_driver.h"
#include "bench/registry_file.h"
#include "log/logger.h"

namespace {

using bench::Count;

// Must run first: once the library has seen a sink, its statements no longer check for one.
void CountWithoutSink() {
  bench::ConnectedSession session;
  Count("trace_statement", [] { bench::TraceLine(bench::kMessageLength); });
  Count("command_no_sink", [&] { bench::Command(session.handle()); });
  gKaloDllState.kaloSessionA = session.handle();
  Count("start_io_ex_no_sink", [] { bench::CommandByStartIoEx(); });
  gKaloDllState.kaloSessionA = nullptr;
}

void CountWithOneSink() {
  bench::ConnectedSession session;
  const auto lines = bench::RecordLines([&] { bench::Command(session.handle()); });
  bench::SetFileSinks(1);
  Count("command_one_sink", [&] { bench::Command(session.handle()); });
  Count("command_lines", [&] { bench::WriteLines(lines); });
  Count("line_written", [] { bench::WriteLine(bench::kMessageLength); });
  bench::SetNullSink();
  Count("line_dropped", [] { bench::WriteLine(bench::kMessageLength); });
}

// KaloInit3 adds a sink each time. Removing it makes all runs equal.
void DropLastSink() {
  delete Logger::logBase.sinks.back();
  Logger::logBase.sinks.pop_back();
}

void CountSecondHandle() {
  bench::SetFileSinks(0);
  KALO_STATE_INIT_PARAMS params = {KALO_FIRMWARE_API_32, 0};
  KaloStateInit(&params);
  void* first = nullptr;
  KaloInit3(&first);
  Count("second_handle", [] {
    void* second = nullptr;
    KaloInit3(&second);
    KaloCleanup3(second);
    CALLGRIND_TOGGLE_COLLECT;
    DropLastSink();
    CALLGRIND_TOGGLE_COLLECT;
  });
  const auto lines = bench::RecordLines([] {
    void* second = nullptr;
    KaloInit3(&second);
    KaloCleanup3(second);
  });
  bench::SetFileSinks(2);
  Count("second_handle_lines", [&] { bench::WriteLines(lines); });
  KaloCleanup3(first);
}

void CountRegistry() {
  bench::WriteRegistry(100);
  Count("registry_100_keys", [] { bench::GetRegistryValue(100); });
  Count("registry_100_keys_stdio", [] { bench::ReadRegistryTwice(); });
  Count("registry_set_100_keys", [] {
    bench::SetRegistryValue(100);
    CALLGRIND_TOGGLE_COLLECT;
    bench::WriteRegistry(100);
    CALLGRIND_TOGGLE_COLLECT;
  });
  bench::WriteRegistry(10000);
  Count("registry_10000_keys", [] { bench::GetRegistryValue(10000); });
}

}  // namespace

int main() {
  // Measures the cost of counting. scripts/instructions.sh subtracts it from the other figures.
  Count("nothing", [] {});
  CountWithoutSink();
  CountWithOneSink();
  CountSecondHandle();
  CountRegistry();
  return 0;
}
