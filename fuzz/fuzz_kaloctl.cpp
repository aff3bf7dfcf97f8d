// Reads any text as a log, a script or a registry file of kaloctl.

#include "common/input_error.h"
#include "common/log_folder.h"
#include "common/log_splitter.h"
#include "fuzz/check.h"
#include "fuzz/registry_file.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"
#include "tools/call/script.h"
#include "tools/registry/registry_text.h"

namespace {

// Returns the records of a log, one per line. Passes the log in pieces of `pieceSize` bytes.
std::string Split(std::string_view log, size_t pieceSize) {
  std::string records;
  size_t copies = 0, folded = 0;
  common::LogFolder folder([&](const common::LogRecord&, size_t number) { folded += number; });
  common::LogSplitter splitter([&](common::LogRecord&& record) {
    records +=
        record.prefix + '\t' + record.function + '\t' + record.tag + '\t' + record.text + '\n';
    ++copies;
    folder.Add(std::move(record));
  });
  for (; !log.empty(); log.remove_prefix(std::min(pieceSize, log.size()))) {
    splitter.Feed(log.substr(0, pieceSize));
  }
  splitter.Finish();
  folder.Finish();
  FUZZ_CHECK(folded == copies);
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

// Checks that kaloctl and the library read the file in the same way, and that a repaired file can
// be read again.
void ReadRegistry(const std::string& text) {
  static const RegistryFile* const file = new RegistryFile;
  file->Store(text);
  const kaloctl::RegistryText registry = kaloctl::ParseRegistry(text);
  uint32_t code = registry.stop ? registry.stop->code : 0;
  const bool found = registry.FindByName("HKEY_USERS\\a") != nullptr;
  if (code == 0 && !found) code = OSCL_ERROR_REG_ID_NOT_FOUND;
  HKEY key = 0;
  FUZZ_CHECK(RegOpenKeyEx(HKEY_USERS, "a", 0, 0, &key) == code);
  const kaloctl::RegistryText repaired = kaloctl::RepairRegistry(text);
  if (repaired.stop || repaired.doubtful) return;
  // Skips texts with a NUL: it ends the text, and an empty text does not load again. kaloctl
  // refuses to write such a file.
  if (text.find('\0') != std::string::npos) return;
  const std::string written = FormatRegistry(repaired);
  FUZZ_CHECK(FormatRegistry(kaloctl::ParseRegistry(written)) == written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  if (*data == 'l') FUZZ_CHECK(Split(text, 1 + size % 7) == Split(text, size));
  if (*data == 's') ReadScript(text);
  if (*data == 'r') ReadRegistry(text);
  return 0;
}
