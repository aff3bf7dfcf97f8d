#include "tools/call/script_runner.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <optional>

#include "api/kalo_dll_state.h"
#include "common/format.h"
#include "common/hex.h"
#include "tools/call/message.h"
#include "tools/call/status_text.h"

namespace kaloctl {
namespace {

constexpr char kIndent[] = "      ";
// The length of an ioctl tag with its NUL. The length distinguishes a tag from private data.
constexpr unsigned int kTagSize = 9;

// The buffers of one command. The request buffer has room for a header even if the request is
// shorter.
struct CommandBuffers {
  explicit CommandBuffers(const ScriptCommand& command)
      : request(std::max<std::size_t>(command.length, kHeaderSize)),
        reply(command.replyLength.value_or(0)) {
    SetCommand(request, command.commandId);
    for (std::size_t i = kHeaderSize; i < request.size(); ++i) {
      request[i] = static_cast<std::uint8_t>(i - kHeaderSize);
    }
    if (command.privateData.size() == kTagSize - 1) {
      std::memcpy(privateData, command.privateData.c_str(), kTagSize);
      privateLength = kTagSize;
    }
  }

  std::vector<std::uint8_t> request;
  ReplyBuffer reply;
  std::uint8_t privateData[kPrivateDataSize] = {};
  unsigned int privateLength = 0;
};

}  // namespace

struct ScriptRunner::CallResult {
  std::uint32_t status;
  // Only a successful command sets it.
  std::optional<std::vector<std::uint8_t>> reply;
  std::vector<std::uint8_t> privateData;
};

ScriptRunner::ScriptRunner(std::ostream& out, const common::Colours& colours, bool trace)
    : out_(out), colours_(colours), log_(LogCapture::Start(trace)) {}

bool ScriptRunner::Run(const std::vector<ScriptStep>& steps) {
  bool good = true;
  for (const ScriptStep& step : steps) {
    // Flush before the call. Then the transcript of the call's operations follows this line, and
    // after a crash the last line shows the call that caused it.
    out_ << colours_.bold << std::setw(4) << step.line << "  " << step.text << colours_.reset
         << std::endl;
    const CallResult result = MakeCall(step);
    PrintResult(step, result);
    good = good && result.status == KALO_DLL_STATUS_SUCCESS;
  }
  return good;
}

ScriptRunner::CallResult ScriptRunner::MakeCall(const ScriptStep& step) {
  const ScriptCommand& command = step.command;
  CommandBuffers buffers(command);
  KALO_STATE_INIT_PARAMS params = {step.apiVersion, step.option};
  CallArguments call;
  call.handle = &handles_[step.handle];
  call.params = step.nullParams ? nullptr : &params;
  call.input = command.nullInput ? nullptr : buffers.request.data();
  call.inputLength = command.length;
  call.output = command.replyLength ? buffers.reply.data() : nullptr;
  call.outputLength = buffers.reply.size();
  if (!command.privateData.empty()) {
    call.privateData = buffers.privateData;
    call.privateLength = &buffers.privateLength;
  }
  const bool sends = (step.entryPoint->arguments & kMessage) != 0 && buffers.privateLength == 0;
  CallResult result = {step.entryPoint->call(call), std::nullopt, {}};
  if (sends && result.status == KALO_DLL_STATUS_SUCCESS) {
    if (call.output != nullptr) result.reply = buffers.reply.Received();
    const unsigned int count = std::min(buffers.privateLength, kPrivateDataSize);
    result.privateData.assign(buffers.privateData, buffers.privateData + count);
  }
  return result;
}

void ScriptRunner::PrintResult(const ScriptStep& step, const CallResult& result) {
  const bool good = result.status == KALO_DLL_STATUS_SUCCESS;
  out_ << "      ->  " << (good ? colours_.good : colours_.bad) << StatusText(result.status)
       << colours_.reset << '\n';
  const std::vector<std::string> lines = log_->Take();
  if (!good) PrintFailure(out_, colours_, kIndent, DescribeFailure(result.status, lines));
  if (step.entryPoint->arguments & kNewHandle) {
    out_ << kIndent << common::Format("handle  {}\n", handles_[step.handle]);
  }
  if (result.reply) out_ << kIndent << "reply   " << ReplyText(*result.reply) << '\n';
  if (!result.privateData.empty()) {
    out_ << common::HexDump(result.privateData, std::string(kIndent) + "private ");
  }
  const KaloDllState& state = gKaloDllState;
  out_ << kIndent
       << common::Format("counts  A {}  B {}  FENU {}\n", state.kaloRefCountA, state.kaloRefCountB,
                         state.fenuRefCount);
  for (const std::string& line : lines) {
    out_ << kIndent << colours_.dim << "log     " << line << colours_.reset << '\n';
  }
}

}  // namespace kaloctl
