// Reads any text as a log or a script of kaloctl.

#include "common/input_error.h"
#include "common/log_folder.h"
#include "common/log_splitter.h"
#include "fuzz/check.h"
#include "tools/call/script.h"

namespace {

// Returns the records of a log. Passes the log in pieces of `pieceSize` bytes.
std::vector<common::LogRecord> Split(std::string_view log, size_t pieceSize) {
  std::vector<common::LogRecord> records;
  size_t folded = 0;
  common::LogFolder folder([&](const common::LogRecord&, size_t number) { folded += number; });
  common::LogSplitter splitter([&](common::LogRecord&& record) {
    records.push_back(record);
    folder.Add(std::move(record));
  });
  for (; !log.empty(); log.remove_prefix(std::min(pieceSize, log.size()))) {
    splitter.Feed(log.substr(0, pieceSize));
  }
  splitter.Finish();
  folder.Finish();
  FUZZ_CHECK(folded == records.size());
  return records;
}

void ReadScript(const std::string& text) {
  Accepts<common::InputError>([&] {
    for (const kaloctl::ScriptStep& step : kaloctl::ParseScript(text, "script")) {
      const std::string again = step.handle.empty() || step.handle == kaloctl::kNullHandle
                                    ? step.text
                                    : "KaloInit3 " + step.handle + '\n' + step.text;
      FUZZ_CHECK(kaloctl::ParseScript(again, "line").back().text == step.text);
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  if (*data == 'l') FUZZ_CHECK(Split(text, 1 + size % 7) == Split(text, size));
  if (*data == 's') ReadScript(text);
  return 0;
}
