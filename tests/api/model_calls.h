#pragma once

#include <functional>
#include <random>
#include <sstream>

#include "tests/api/model.h"

namespace test {

// One call of a sequence.
struct Step {
  unsigned call;
  unsigned argument = 0;  // chooses handle, command, version, ...
  unsigned shape = 0;
  unsigned tag = 0;
  std::vector<CallFault> faults = {};
  InjectedFailure injected = {};
};
using Sequence = std::vector<Step>;

// Private data and its length on entry, and whether they ask for a wrapper.
inline constexpr struct {
  const char* data;
  unsigned int length;
  bool wrapper;
} kTags[] = {{"", 16, false},         {"IOCTLHND", 9, true},  {"IOCTLFRE", 9, true},
             {"IOCTLHNDx", 9, true},  {"IOCTLHNX", 9, false}, {"IOCTLHND", 8, false},
             {"IOCTLFRE", 10, false}, {"IOCTLFR", 9, false}};

// What a step hands to the entry point and to the model.
struct Arguments {
  Arguments(Model& theModel, const Step& step) : model(theModel), n(step.argument) {
    static constexpr uint32_t kVersions[] = {0x30000, 0x30002, 0, 0x30001};
    static constexpr uint32_t kCommands[] = {0x10, 0x30000, 0x3FFFF, 0x40001, kForeignCommand};
    values = {kVersions[n % 4], n / 4 % 4};
    if (n >= 56) params = nullptr;
    request = {kCommands[n % 5], step.shape, kTags[step.tag].wrapper};
    plain = {request.command, request.shape | kNullPrivateData, false};
    input = Message(request.command);
    in = request.shape & kNullInput ? nullptr : input.data();
    out = request.shape & kNullOutput ? nullptr : output.data();
    inLength = request.inputLength();
    outLength = request.outputLength();
    std::strcpy(reinterpret_cast<char*>(privateData.data()), kTags[step.tag].data);
    data = request.shape & kNullPrivateData ? nullptr : privateData.data();
    length = request.shape & kNullPrivateLength ? nullptr : &privateLength;
    privateLength = kTags[step.tag].length;
    // Live sessions, or null, may be used; those destroyed may be given to KaloCleanup3 as well.
    const size_t known = model.sessions.size(), chosen = n % (known + 1);
    if (chosen != known) released = const_cast<void*>(model.sessions[chosen]->address);
    live = model.LiveAt(released);
    used = const_cast<void*>(Model::AddressOf(live));
  }

  // A damaged generation, or other code with handles of its own.
  uint32_t WriteState() {
    static constexpr uint32_t kGenerations[] = {3, 0, 1};
    for (KaloDllState* state : {&gKaloDllState, model.want.operator->()}) {
      const uint32_t generation = kGenerations[n / 3 % 3];
      if (n % 3 == 0) state->kaloInterfaceVersion = generation;
      if (n % 3 == 1) state->fenuInterfaceVersion = generation;
      if (n % 3 != 2) continue;
      for (uint32_t* count : {&state->kaloRefCountA, &state->kaloRefCountB, &state->fenuRefCount}) {
        if (*count != 0) *count = n / 3 % 2 ? 1 : 10;
      }
    }
    return 0;
  }

  Model& model;
  const unsigned n;
  KALO_STATE_INIT_PARAMS values, *params = &values;
  Request request, plain;
  Bytes input, output = Bytes(32), privateData = Bytes(16);
  unsigned char *in, *out, *data;
  unsigned inLength, outLength, privateLength, *length;
  void* released = nullptr;
  Model::Session* live;
  void* used;
  void* handle = Model::kUnwritten;
};

using Made = std::function<uint32_t(Arguments&)>;
inline const struct {
  const char* name;
  Made make, predict;
} kCalls[] = {
    {"KaloStateInit", [](auto& a) { return KaloStateInit(a.params); },
     [](auto& a) { return a.model.KaloStateInit(a.params); }},
    {"KaloInit3", [](auto& a) { return KaloInit3(&a.handle); },
     [](auto& a) { return a.model.KaloInit3(); }},
    {"StartIoEx3",
     [](auto& a) {
       return StartIoEx3(a.used, a.in, a.inLength, a.out, a.outLength, a.data, a.length);
     },
     [](auto& a) { return a.model.StartIoEx3(a.live, a.request); }},
    {"StartIo3", [](auto& a) { return StartIo3(a.used, a.in, a.inLength, a.out, a.outLength); },
     [](auto& a) { return a.model.StartIo3(a.live, a.plain); }},
    {"KaloCleanup3", [](auto& a) { return KaloCleanup3(a.released); },
     [](auto& a) { return a.model.KaloCleanup3(a.released); }},
    {"KaloInit", [](auto&) { return KaloInit(); }, [](auto& a) { return a.model.KaloInit(); }},
    {"KaloCleanup", [](auto&) { return KaloCleanup(); },
     [](auto& a) { return a.model.KaloCleanup(); }},
    {"StartIoEx",
     [](auto& a) { return StartIoEx(a.in, a.inLength, a.out, a.outLength, a.data, a.length); },
     [](auto& a) { return a.model.StartIoEx(a.request); }},
    {"StartIo", [](auto& a) { return StartIo(a.in, a.inLength, a.out, a.outLength); },
     [](auto& a) { return a.model.StartIoEx(a.plain); }},
    {"FenuInit3", [](auto& a) { return FenuInit3(&a.handle); },
     [](auto& a) { return a.model.FenuInit3(); }},
    {"FenuCleanup3", [](auto& a) { return FenuCleanup3(a.used); },
     [](auto& a) { return a.model.FenuCleanup3(a.live); }},
    {"FenuInit", [](auto&) { return FenuInit(); }, [](auto& a) { return a.model.FenuInit(); }},
    {"FenuCleanup", [](auto&) { return FenuCleanup(); },
     [](auto& a) { return a.model.FenuCleanup(); }},
    {"ProvisioningStartIo",
     [](auto& a) { return ProvisioningStartIo(a.in, a.inLength, a.out, a.outLength); },
     [](auto& a) { return a.model.StartIoEx3(nullptr, a.plain); }},
    // Other code.
    {"gKaloDllState =", [](auto& a) { return a.WriteState(); }, [](auto&) { return 0; }}};
enum Call : unsigned { kKaloStateInit, kKaloInit3, kStartIoEx3, kFenuInit3 = 9, kWriteState = 14 };

inline std::string Describe(const Sequence& sequence) {
  std::ostringstream text;
  for (const Step& step : sequence) {
    text << "  " << kCalls[step.call].name << " #" << step.argument << " shape=" << step.shape
         << " tag=" << step.tag << " exception=" << static_cast<int>(step.injected.point) << '.'
         << step.injected.kind << '.' << step.injected.left;
    for (const auto& [operation, first, times, error] : step.faults) {
      text << ", " << OperationName(operation) << " +" << first << " x" << times << ": " << error;
    }
    text << '\n';
  }
  return text.str();
}

template <typename Random>
Sequence RandomSequence(Random& random) {
  const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
  Sequence sequence(4 + below(40));
  for (Step& step : sequence) {
    step.call = below(std::size(kCalls));
    // Other code writes the state now and then only.
    if (step.call == kWriteState && below(3) != 0) step.call = kKaloInit3;
    step.argument = below(64);
    step.shape = below(3) != 0 ? 0 : below(16);
    step.tag = below(2) != 0 ? 0 : below(std::size(kTags));
    for (unsigned i = below(4); i < 2; ++i) {
      const auto operation = static_cast<zulisim::Operation>(below(zulisim::kOperationCount));
      const bool loses = operation != zulisim::Operation::kClose && below(2) != 0;
      step.faults.push_back(
          {operation, below(5), 1 + below(6), loses ? ENODEV : EIO + static_cast<int>(below(8))});
    }
    if (below(8) == 0) {
      step.injected = {static_cast<Point>(1 + below(3)),
                       static_cast<InjectedFailure::Kind>(below(3)), below(2)};
    }
  }
  return sequence;
}

}  // namespace test
