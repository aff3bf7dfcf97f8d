#include "simulator/record/recording.h"

#include <fcntl.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/device/operation_decoder.h"

namespace zulisim {
namespace {

using common::Format;
using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "zulisim recording";
constexpr std::uint64_t kVersion = 2;
constexpr std::uint64_t kMaxCount = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kMaxTime = kMaxCount / 2;  // the sum of two such values does not overflow

// The kernel's O_LARGEFILE; libc defines it as 0 in 64-bit programs.
constexpr int kKernelLargeFile = 0100000;

// The access modes come first, by value.
constexpr std::pair<const char*, int> kOpenFlags[] = {
    {"O_RDONLY", O_RDONLY},
    {"O_WRONLY", O_WRONLY},
    {"O_RDWR", O_RDWR},
    {"O_CREAT", O_CREAT},
    {"O_EXCL", O_EXCL},
    {"O_NOCTTY", O_NOCTTY},
    {"O_TRUNC", O_TRUNC},
    {"O_APPEND", O_APPEND},
    {"O_NONBLOCK", O_NONBLOCK},
    {"O_CLOEXEC", O_CLOEXEC},
    {"O_LARGEFILE", kKernelLargeFile},
};

int ParseOpenFlags(const std::string& text) {
  std::istringstream words(text);
  std::uint32_t flags = 0;
  for (std::string word; std::getline(words, word, '|');) {
    const auto* known = std::find_if(std::begin(kOpenFlags), std::end(kOpenFlags),
                                     [&word](const auto& flag) { return flag.first == word; });
    flags |= known != std::end(kOpenFlags)
                 ? static_cast<std::uint32_t>(known->second)
                 : static_cast<std::uint32_t>(common::RequireNumber("a flag without a name", word));
  }
  return static_cast<int>(flags);
}

// Replaces bytes that are not UTF-8, for example in the arguments of a program.
std::string LineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

[[noreturn]] void Fail(std::uint32_t line, const std::string& message, std::size_t column = 1) {
  throw RecordingError({line, static_cast<std::uint32_t>(column), message});
}

// Reads the members of one line. Throws RecordingError if a member is missing or invalid.
class LineReader {
 public:
  LineReader(std::uint32_t line, std::string_view text) : line_(line) {
    try {
      json_ = Json::parse(text);
    } catch (const Json::parse_error& error) {
      zulisim::Fail(line, "not valid JSON", std::max<std::size_t>(error.byte, 1));
    } catch (const Json::out_of_range&) {
      zulisim::Fail(line, "not valid JSON: a number is too large");
    }
    if (!json_.is_object()) Fail("expected a JSON object");
  }

  [[noreturn]] void Fail(const std::string& message) const { zulisim::Fail(line_, message); }

  bool Has(const char* name) const { return json_.contains(name); }

  const Json& Get(const char* name) const {
    const auto found = json_.find(name);
    if (found == json_.end()) Fail(Format("the member \"{}\" is missing", name));
    return *found;
  }

  bool IsTrue(const char* name) const { return Has(name) && Get(name) == true; }

  // Without the member, these functions return `otherwise` if it is given.
  std::uint64_t Number(const char* name, std::uint64_t highest,
                       std::optional<std::uint64_t> otherwise = std::nullopt) const {
    if (otherwise && !Has(name)) return *otherwise;
    const Json& json = Get(name);
    if (json.is_number_unsigned() && json.get<std::uint64_t>() <= highest) return json;
    Fail(Format("\"{}\": expected a number from 0 to {}, not {}", name, highest, json.dump()));
  }

  std::string Text(const char* name, const char* otherwise = nullptr) const {
    if (otherwise != nullptr && !Has(name)) return otherwise;
    const Json& json = Get(name);
    if (!json.is_string()) Fail(Format("\"{}\": expected a text", name));
    return json;
  }

  // Calls `parse` with the text of a member. If it throws InputError, throws RecordingError with
  // the member's name.
  template <typename Function>
  auto Parse(const char* name, Function parse) const -> decltype(parse(std::string())) {
    const std::string text = Text(name);
    try {
      return parse(text);
    } catch (const common::InputError& error) {
      Fail(Format("\"{}\": {}", name, error.what()));
    }
  }

 private:
  const std::uint32_t line_;
  Json json_;
};

RecordingHeader ParseHeader(const LineReader& line) {
  if (!line.Has("format") || line.Get("format") != kFormat) {
    line.Fail(Format("not a recording: expected \"format\":\"{}\"", kFormat));
  }
  const std::uint64_t version = line.Number("version", kMaxCount);
  if (version != kVersion) {
    line.Fail(Format("version {} of the format is not supported, only version {}; {}", version,
                     kVersion,
                     version > kVersion ? "use a newer zulisim" : "record the program again"));
  }
  RecordingHeader header;
  header.tool = line.Text("tool", "");
  header.started = line.Text("started", "");
  header.redacted = line.IsTrue("redacted");
  try {
    if (line.Has("program")) line.Get("program").get_to(header.program);
    if (!line.Has("clients")) header.clients = DefaultClients();
    for (const Json& each : line.Has("clients") ? line.Get("clients") : Json()) {
      Client client;
      each.at("name").get_to(client.name);
      client.guid = ParseGuid(each.at("guid"));
      header.clients.push_back(std::move(client));
    }
  } catch (const Json::exception&) {
    line.Fail("expected \"program\" with texts and \"clients\" with objects of name and guid");
  } catch (const common::InputError& error) {
    line.Fail(error.what());
  }
  return header;
}

void ParseResult(const LineReader& line, OperationRecord* record) {
  if (line.Has("errno")) {
    record->result = -1;
    record->error = line.Parse("errno", [](const std::string& name) {
      const auto number = common::ParseNumber(name, 4095);
      return number.value_or(0) > 0 ? static_cast<int>(*number) : ParseErrno(name);
    });
    return;
  }
  const std::uint64_t highest = record->IsTransfer()                     ? record->length
                                : record->operation == Operation::kIoctl ? common::kMaxWord
                                                                         : 0;
  record->result = static_cast<std::int64_t>(line.Number("result", highest));
}

Bytes ParseMessage(const LineReader& line, const char* name, std::size_t size, bool redacted) {
  Bytes bytes;
  if (line.Has(name)) {
    bytes =
        line.Parse(name, [](const std::string& text) { return ParseBytes("the message", text); });
  }
  if (bytes.size() > size || (bytes.size() < size && !redacted)) {
    line.Fail(
        Format("\"{}\": expected {}, not {}", name, common::Counted(size, "byte"), bytes.size()));
  }
  return bytes;
}

OperationRecord ParseOperationLine(const LineReader& line, bool redacted) {
  OperationRecord record;
  record.operation = line.Parse("operation", ParseOperation);
  record.start = std::chrono::nanoseconds(line.Number("start_ns", kMaxTime, 0));
  record.end = record.start + std::chrono::nanoseconds(line.Number("duration_ns", kMaxTime, 0));
  record.process = static_cast<int>(line.Number("process", common::kMaxWord / 2, 0));
  record.thread = static_cast<int>(line.Number("thread", common::kMaxWord / 2, 0));
  record.connection = line.Number("connection", kMaxCount, 0);
  record.abandoned = record.operation == Operation::kClose && line.IsTrue("abandoned");
  record.hasBuffer = !line.IsTrue("null");
  record.why = line.Text("note", "");
  if (record.operation == Operation::kOpen) {
    record.openFlags = line.Parse("flags", ParseOpenFlags);
  } else if (record.operation == Operation::kIoctl) {
    record.request = line.Parse("request", [](const std::string& text) {
      return static_cast<std::uint32_t>(common::RequireNumber("an ioctl request", text));
    });
  } else if (record.IsTransfer()) {
    record.length = line.Number("length", kMaxCount);
  }
  ParseResult(line, &record);
  if (record.operation == Operation::kOpen && (record.connection == 0) != (record.result < 0)) {
    line.Fail("an open that succeeds needs a \"connection\", one that fails must not have one");
  }
  record.input = ParseMessage(line, "input", record.InputSize(), redacted);
  record.output = ParseMessage(line, "output", record.OutputSize(), redacted);
  return record;
}

}  // namespace

std::string HeaderLine(const RecordingHeader& header) {
  Json json = {{"format", kFormat},         {"version", kVersion},
               {"tool", header.tool},       {"started", header.started},
               {"program", header.program}, {"clients", Json::array()}};
  for (const Client& client : header.clients) {
    json["clients"].push_back({{"name", client.name}, {"guid", GuidText(client.guid)}});
  }
  if (header.redacted) json["redacted"] = true;
  return LineOf(json);
}

std::string OperationLine(const OperationRecord& record) {
  Json json = {{"number", record.sequence},
               {"start_ns", std::max<std::int64_t>(0, record.start.count())},
               {"duration_ns", std::max<std::int64_t>(0, (record.end - record.start).count())}};
  if (record.process > 0) json["process"] = record.process;
  if (record.thread > 0) json["thread"] = record.thread;
  if (record.connection > 0) json["connection"] = record.connection;
  if (!record.client.empty()) json["client"] = record.client;
  json["operation"] = OperationName(record.operation);
  if (record.abandoned) json["abandoned"] = true;
  if (record.operation == Operation::kOpen) json["flags"] = OpenFlagsText(record.openFlags);
  if (record.operation == Operation::kIoctl) json["request"] = common::Hex(record.request, 8);
  if (record.IsTransfer()) json["length"] = record.length;
  if (!record.hasBuffer) json["null"] = true;
  if (record.commandId) json["command"] = common::Hex(*record.commandId);
  if (!record.input.empty()) json["input"] = common::HexDigits(record.input);
  json["result"] = record.result;
  if (record.result < 0) json["errno"] = ErrnoName(record.error);
  if (record.status) json["status"] = common::Hex(*record.status);
  if (!record.output.empty()) json["output"] = common::HexDigits(record.output);
  if (!record.why.empty()) json["note"] = record.why;
  return LineOf(json);
}

std::string OpenFlagsText(int flags) {
  std::vector<std::string> names;
  for (const auto& [name, value] : kOpenFlags) {
    const int mask = value <= O_RDWR ? O_ACCMODE : value;
    if ((flags & mask) != value) continue;
    names.emplace_back(name);
    flags &= ~mask;
  }
  if (flags != 0) names.push_back(common::Hex(static_cast<std::uint32_t>(flags)));
  return common::Joined(names, "|");
}

bool IsRecording(const std::string& text) { return text.rfind('{', 0) == 0; }

Recording ParseRecording(const std::string& text) {
  if (!IsRecording(text)) Fail(1, Format("not a recording: expected \"format\":\"{}\"", kFormat));
  Recording recording;
  std::optional<OperationDecoder> decoder;
  bool complete = false;
  std::uint32_t number = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t feed = std::min(text.find('\n', at), text.size());
    const std::string_view content(text.data() + at, feed - at);
    at = feed + 1;
    ++number;
    if (complete) Fail(number, "unexpected line after the line that completes the recording");
    // A line that was cut off is not valid JSON, so a last line that can be parsed is complete.
    if (number > 1 && feed == text.size() && !Json::accept(content)) break;
    const LineReader line(number, content);
    if (number == 1) {
      recording.header = ParseHeader(line);
      decoder.emplace(recording.header.clients);
    } else if (line.IsTrue("complete")) {
      complete = true;
    } else {
      recording.operations.push_back(ParseOperationLine(line, recording.header.redacted));
      decoder->Decode(&recording.operations.back());
    }
  }
  recording.cut = !complete;
  return recording;
}

}  // namespace zulisim
