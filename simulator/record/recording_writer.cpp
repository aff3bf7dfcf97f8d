#include <cinttypes>
#include <cstdio>

#include "simulator/device/hex_lines.h"
#include "simulator/record/recording.h"

namespace zulisim {
namespace {

std::string Seconds(std::chrono::nanoseconds time) {
  char text[48];
  const std::int64_t count = std::max<std::int64_t>(0, time.count());
  std::snprintf(text, sizeof(text), "%" PRId64 ".%09" PRId64, count / 1000000000,
                count % 1000000000);
  return text;
}

std::string Mode(unsigned mode) {
  char text[24];
  std::snprintf(text, sizeof(text), " mode 0%o", mode);
  return mode == 0 ? "" : text;
}

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), " 0x%08x", value);
  return text;
}

// A comment ends with its line.
std::string CommentText(const std::string& text) {
  std::string comment;
  for (const char c : text) comment += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
  return comment;
}

std::string Call(const RawOperation& operation) {
  if (operation.gone) return "gone";
  std::string text = OperationName(operation.operation);
  switch (operation.operation) {
    case Operation::kOpen:
      return text + " " + OpenFlagsText(operation.flags) + Mode(operation.mode);
    case Operation::kIoctl:
      text += Hex(operation.request);
      break;
    case Operation::kRead:
    case Operation::kWrite:
      text += " " + std::to_string(operation.length);
      break;
    case Operation::kClose:
      return text;
  }
  return operation.hasBuffer ? text : text + " null";
}

std::string Lines(char direction, const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kHexLineSize) {
    const HexLine line = HexLineAt(bytes, at);
    text += std::string("  ") + direction + " " + line.digits + "  # " + line.characters + "\n";
  }
  return text;
}

}  // namespace

std::string RecordingHead(const std::vector<std::string>& program,
                          const std::vector<Client>& clients) {
  std::string text = "zulisim recording 1\n#";
  for (const std::string& argument : program) text += " " + CommentText(argument);
  text += "\n";
  for (const Client& client : clients) {
    text += "client " + client.name + " " + GuidText(client.guid) + "\n";
  }
  return text + "\n";
}

std::string RecordingEntry(std::uint64_t number, const RawOperation& operation) {
  const std::string connection =
      operation.connection == 0 ? "-" : "#" + std::to_string(operation.connection);
  std::string text = std::to_string(number) + "  " + Seconds(operation.start) + "  " + connection +
                     "  " + Call(operation) + "  -> " + ResultText(operation) + "  in " +
                     Seconds(operation.took);
  if (!operation.note.empty()) text += "  # " + CommentText(operation.note);
  return text + "\n" + Lines('>', operation.input) + Lines('<', operation.output);
}

}  // namespace zulisim
