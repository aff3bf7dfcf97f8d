#include "tools/call/script_runner.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <optional>

#include "api/kalo_dll.h"
#include "api/kalo_dll_state.h"
#include "common/hex_dump.h"
#include "tools/call/message.h"
#include "common/number.h"
#include "tools/call/status_text.h"

namespace kaloctl {

namespace {

constexpr char kIndent[] = "      ";
constexpr unsigned int kPrivateDataSize = 16;
// Tells a ioctl tag from private data: the tag with its NUL.
constexpr unsigned int kTagSize = 9;

// Buffers of one command; every message has room for a header, whatever its length says.
struct CommandBuffers {
  explicit CommandBuffers(const ScriptCommand& command)
      : request(std::max<std::size_t>(command.length, kHeaderSize)),
        reply(command.replyLength.value_or(0)) {
    SetCommand(request, command.commandId);
    for (std::size_t i = kHeaderSize; i < request.size(); ++i) {
      request[i] = static_cast<uint8_t>(i - kHeaderSize);
    }
    if (command.privateData == PrivateData::kNone) return;
    privateLength = &privateLengthWord;
    privateData = privateBlock;
    if (command.privateData != PrivateData::kBuffer) {
      const bool alloc = command.privateData == PrivateData::kAllocTag;
      std::memcpy(privateBlock, alloc ? "IOCTLHND" : "IOCTLFRE", kTagSize);
      privateLengthWord = kTagSize;
    }
  }

  std::vector<uint8_t> request;
  ReplyBuffer reply;
  uint8_t privateBlock[kPrivateDataSize] = {};
  unsigned int privateLengthWord = 0;
  uint8_t* privateData = nullptr;
  unsigned int* privateLength = nullptr;
};

// The cleanups report by status alone.
bool RecordsError(Call call) {
  return call != Call::kKaloCleanup3 && call != Call::kKaloCleanup && call != Call::kFenuCleanup3 &&
         call != Call::kFenuCleanup;
}

}  // namespace

struct ScriptRunner::Outcome {
  void* handle = nullptr;
  // What a successful command brought back.
  std::optional<std::vector<uint8_t>> reply;
  std::vector<uint8_t> privateData;
};

ScriptRunner::ScriptRunner(std::ostream& out, const Palette& palette, const RunOptions& options)
    : out_(out),
      palette_(palette),
      options_(options),
      log_(options.trace ? LogCapture::Detail::kTrace : LogCapture::Detail::kOrdinary) {}

bool ScriptRunner::Run(const std::vector<ScriptStep>& steps) {
  bool good = true;
  for (const ScriptStep& step : steps) good = RunStep(step) && good;
  return good;
}

bool ScriptRunner::RunStep(const ScriptStep& step) {
  out_ << palette_.bold << std::setw(4) << step.line << "  " << step.text << palette_.reset;
  // Before the call, so that what the device prints meanwhile stands below, and a crash has a
  // cause.
  if (!options_.brief) out_ << std::endl;
  if (RefusesDestroyed(step)) {
    out_ << Arrow() << palette_.bad << "not made" << palette_.reset << '\n'
         << kIndent << "text    the session of '" << step.handle
         << "' has been destroyed: the call would use freed memory\n"
         << kIndent << "try     initialise the handle again before this line, or --use-destroyed\n";
    return false;
  }
  Outcome outcome;
  const uint32_t status = MakeCall(step, outcome);
  book_.AfterCall(step.call, outcome.handle);
  PrintOutcome(step, status, outcome);
  return status == KALO_DLL_STATUS_SUCCESS;
}

const char* ScriptRunner::Arrow() const { return options_.brief ? "  ->  " : "      ->  "; }

bool ScriptRunner::RefusesDestroyed(const ScriptStep& step) const {
  if (options_.useDestroyed) return false;
  if (step.call != Call::kStartIoEx3 && step.call != Call::kStartIo3) return false;
  const auto handle = handles_.find(step.handle);
  return handle != handles_.end() && book_.Destroyed(handle->second);
}

uint32_t ScriptRunner::MakeCall(const ScriptStep& step, Outcome& outcome) {
  if (!step.handle.empty() && step.handle != kNullHandle) outcome.handle = handles_[step.handle];
  switch (step.call) {
    case Call::kKaloStateInit: {
      KALO_STATE_INIT_PARAMS params = {step.apiVersion, step.option};
      return KaloStateInit(step.nullParams ? nullptr : &params);
    }
    case Call::kKaloInit3:
      return KaloInit3(&handles_[step.handle]);
    case Call::kFenuInit3:
      return FenuInit3(&handles_[step.handle]);
    case Call::kKaloCleanup3:
      return KaloCleanup3(outcome.handle);
    case Call::kFenuCleanup3:
      return FenuCleanup3(outcome.handle);
    case Call::kKaloInit:
      return KaloInit();
    case Call::kKaloCleanup:
      return KaloCleanup();
    case Call::kFenuInit:
      return FenuInit();
    case Call::kFenuCleanup:
      return FenuCleanup();
    default:
      return SendCommand(step, outcome);
  }
}

uint32_t ScriptRunner::SendCommand(const ScriptStep& step, Outcome& outcome) {
  CommandBuffers buffers(step.command);
  uint8_t* const input = step.command.nullInput ? nullptr : buffers.request.data();
  uint8_t* const output = step.command.replyLength ? buffers.reply.data() : nullptr;
  const uint32_t length = step.command.length;
  const uint32_t replyLength = buffers.reply.size();
  uint32_t status = KALO_DLL_STATUS_FAILURE;
  switch (step.call) {
    case Call::kStartIoEx3:
      status = StartIoEx3(outcome.handle, input, length, output, replyLength, buffers.privateData,
                          buffers.privateLength);
      break;
    case Call::kStartIo3:
      status = StartIo3(outcome.handle, input, length, output, replyLength);
      break;
    case Call::kStartIoEx:
      status =
          StartIoEx(input, length, output, replyLength, buffers.privateData, buffers.privateLength);
      break;
    case Call::kStartIo:
      status = StartIo(input, length, output, replyLength);
      break;
    default:
      status = ProvisioningStartIo(input, length, output, replyLength);
      break;
  }
  const bool wrapper = step.command.privateData == PrivateData::kAllocTag ||
                       step.command.privateData == PrivateData::kFreeTag;
  if (status == KALO_DLL_STATUS_SUCCESS && !wrapper) {
    if (output != nullptr) outcome.reply = buffers.reply.Received();
    const unsigned int count = std::min(buffers.privateLengthWord, kPrivateDataSize);
    outcome.privateData.assign(buffers.privateBlock, buffers.privateBlock + count);
  }
  return status;
}

void ScriptRunner::PrintOutcome(const ScriptStep& step, uint32_t status, const Outcome& outcome) {
  const bool good = status == KALO_DLL_STATUS_SUCCESS;
  out_ << Arrow() << (good ? palette_.good : palette_.bad) << StatusText(status) << palette_.reset
       << '\n';
  const std::vector<std::string> lines = log_.Take();
  if (options_.brief) return;
  if (!good) PrintFailure(out_, palette_, kIndent, status, RecordsError(step.call), lines);
  if (step.call == Call::kKaloInit3 || step.call == Call::kFenuInit3) {
    out_ << kIndent << "handle  " << Hex(reinterpret_cast<uintptr_t>(handles_[step.handle]))
         << '\n';
  }
  if (outcome.reply) out_ << kIndent << "reply   " << ReplyText(*outcome.reply) << '\n';
  if (!outcome.privateData.empty()) {
    PrintHexDump(out_, outcome.privateData.data(), outcome.privateData.size(),
                 std::string(kIndent) + "private ");
  }
  PrintCounts();
  if (options_.showLog) {
    for (const std::string& line : lines) {
      out_ << kIndent << palette_.dim << "log     " << line << palette_.reset << '\n';
    }
  }
  out_ << std::flush;
}

void ScriptRunner::PrintCounts() {
  const KaloDllState& state = gKaloDllState;
  out_ << kIndent << "counts  A " << state.kaloRefCountA << "  B " << state.kaloRefCountB
       << "  FENU " << state.fenuRefCount << '\n';
}

}  // namespace kaloctl
