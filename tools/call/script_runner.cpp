#include "tools/call/script_runner.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <optional>

#include "api/kalo_dll_state.h"
#include "common/format.h"
#include "common/hex.h"
#include "common/number.h"
#include "tools/call/message.h"
#include "tools/call/status_text.h"

namespace kaloctl {
namespace {

constexpr char kIndent[] = "      ";
// Tells an ioctl tag from private data: the tag with its NUL.
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

}  // namespace

struct ScriptRunner::CallResult {
  void* handle = nullptr;
  // What a successful command brought back.
  std::optional<std::vector<uint8_t>> reply;
  std::vector<uint8_t> privateData;
};

ScriptRunner::ScriptRunner(std::ostream& out, const common::Colours& colours,
                           const RunOptions& options)
    : out_(out),
      colours_(colours),
      options_(options),
      log_(options.trace ? LogCapture::Detail::kTrace : LogCapture::Detail::kOrdinary) {}

bool ScriptRunner::Run(const std::vector<ScriptStep>& steps) {
  bool good = true;
  for (const ScriptStep& step : steps) good = RunStep(step) && good;
  return good;
}

bool ScriptRunner::RunStep(const ScriptStep& step) {
  out_ << colours_.bold << std::setw(4) << step.line << "  " << step.text << colours_.reset;
  // Before the call, so that what the device prints meanwhile stands below, and a crash has a
  // cause.
  if (!options_.brief) out_ << std::endl;
  if (RefusesDestroyed(step)) {
    out_ << Arrow() << colours_.bad << "not made" << colours_.reset << '\n'
         << kIndent << "text    the session of '" << step.handle
         << "' has been destroyed: the call would use freed memory\n"
         << kIndent << "try     initialise the handle again before this line, or --use-destroyed\n";
    return false;
  }
  CallResult result;
  const uint32_t status = MakeCall(step, result);
  destroyed_.AfterCall(*step.entryPoint, result.handle);
  PrintResult(step, status, result);
  return status == KALO_DLL_STATUS_SUCCESS;
}

const char* ScriptRunner::Arrow() const { return options_.brief ? "  ->  " : "      ->  "; }

bool ScriptRunner::RefusesDestroyed(const ScriptStep& step) const {
  constexpr unsigned kSendsOnHandle = kHandle | kMessage;
  const bool sends = (step.entryPoint->arguments & kSendsOnHandle) == kSendsOnHandle;
  const auto handle = handles_.find(step.handle);
  return sends && !options_.useDestroyed && handle != handles_.end() &&
         destroyed_.Contains(handle->second);
}

uint32_t ScriptRunner::MakeCall(const ScriptStep& step, CallResult& result) {
  const ScriptCommand& command = step.command;
  CommandBuffers buffers(command);
  KALO_STATE_INIT_PARAMS params = {step.apiVersion, step.option};
  void* null = nullptr;
  CallArguments call;
  call.handle = step.handle.empty() || step.handle == kNullHandle ? &null : &handles_[step.handle];
  result.handle = *call.handle;
  call.params = step.nullParams ? nullptr : &params;
  call.input = command.nullInput ? nullptr : buffers.request.data();
  call.inputLength = command.length;
  call.output = command.replyLength ? buffers.reply.data() : nullptr;
  call.outputLength = buffers.reply.size();
  call.privateData = buffers.privateData;
  call.privateLength = buffers.privateLength;
  const uint32_t status = step.entryPoint->call(call);
  const bool wrapper =
      command.privateData == PrivateData::kAllocTag || command.privateData == PrivateData::kFreeTag;
  const bool sends = (step.entryPoint->arguments & kMessage) != 0;
  if (sends && status == KALO_DLL_STATUS_SUCCESS && !wrapper) {
    if (call.output != nullptr) result.reply = buffers.reply.Received();
    const unsigned int count = std::min(buffers.privateLengthWord, kPrivateDataSize);
    result.privateData.assign(buffers.privateBlock, buffers.privateBlock + count);
  }
  return status;
}

void ScriptRunner::PrintResult(const ScriptStep& step, uint32_t status, const CallResult& result) {
  const bool good = status == KALO_DLL_STATUS_SUCCESS;
  out_ << Arrow() << (good ? colours_.good : colours_.bad) << StatusText(status) << colours_.reset
       << '\n';
  const std::vector<std::string> lines = log_.Take();
  if (options_.brief) return;
  if (!good) PrintFailure(out_, colours_, kIndent, status, step.entryPoint->recordsError, lines);
  if (step.entryPoint->arguments & kNewHandle) {
    out_ << kIndent << "handle  " << common::Hex(reinterpret_cast<uintptr_t>(handles_[step.handle]))
         << '\n';
  }
  if (result.reply) out_ << kIndent << "reply   " << ReplyText(*result.reply) << '\n';
  if (!result.privateData.empty()) {
    out_ << common::HexDump(result.privateData, std::string(kIndent) + "private ");
  }
  const KaloDllState& state = gKaloDllState;
  out_ << kIndent
       << common::Format("counts  A {}  B {}  FENU {}\n", state.kaloRefCountA, state.kaloRefCountB,
                         state.fenuRefCount);
  if (options_.showLog) {
    for (const std::string& line : lines) {
      out_ << kIndent << colours_.dim << "log     " << line << colours_.reset << '\n';
    }
  }
  out_ << std::flush;
}

}  // namespace kaloctl
