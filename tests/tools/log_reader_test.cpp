// Splits logs in one piece. fuzz_kaloctl_test splits them in pieces of any size.

#include "common/file_follower.h"
#include "common/hex.h"
#include "common/log_folder.h"
#include "common/log_splitter.h"
#include "tests/support/descriptors.h"
#include "tests/support/standard_headers.h"

namespace common {
namespace {

// Returns each record as it is logged, with "?" before text without a function, and with the number
// of its copies if there are several.
std::vector<std::string> Read(const std::string& log) {
  std::vector<std::string> records;
  LogFolder folder([&](const LogRecord& record, std::size_t copies) {
    std::string& text = records.emplace_back();
    if (!record.prefix.empty()) text = record.prefix + " ";
    text += record.function.empty() ? "?" : record.function + ":" + record.tag + ": ";
    text += record.text;
    if (copies != 1) text += " x" + std::to_string(copies);
  });
  LogSplitter splitter([&](LogRecord&& record) { folder.Add(std::move(record)); });
  splitter.Feed(log);
  splitter.Finish();
  folder.Finish();
  return records;
}

TEST(LogReader, splits_difficult_logs_and_folds_copies) {
  using namespace std::string_literals;
  const std::string init = "KaloInit3:1: Executing call to it", line = "StartIoEx3:3: line";
  const std::string end = "KaloCleanup3:2: end";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"", {}},
      {"KaloInit3:1: aKaloInit:2: bStartIoEx3:3: c\nStartIoEx:4: d",
       {"KaloInit3:1: a", "KaloInit:2: b", "StartIoEx3:3: c", "StartIoEx:4: d"}},
      {"CpDremSession:1: up~CpDremSession:2: downConnect:3: cDisconnect:4: ",
       {"CpDremSession:1: up", "~CpDremSession:2: down", "Connect:3: c", "Disconnect:4: "}},
      {"KaloInit3:1: what: 12: KaloInit: x KaloInit:7 and :8: KaloInit3:: KaloInit:12345678901: "
       "KaloInit:1234567890: x",
       {"KaloInit3:1: what: 12: KaloInit: x KaloInit:7 and :8: KaloInit3:: KaloInit:12345678901: ",
        "KaloInit:1234567890: x"}},
      {"[00001234] 77 IoMessage:9: a[12345678] -5 IoMessage:9: b[1] 5 IoMessage:9: c",
       {"[00001234] 77 IoMessage:9: a", "[12345678] -5 IoMessage:9: b[1] 5 ", "IoMessage:9: c"}},
      {"Driver:5: mine Driver:6: not\nDriver:6: mine too\n",
       {"?Driver:5: mine Driver:6: not", "?Driver:6: mine too"}},
      {"\x01\0:\xff KaloInit:1: a\0b\nrest\n\n"s, {"?\x01\0:\xff "s, "KaloInit:1: a\0b"s, "?rest"}},
      {"KaloInit:1:", {"?KaloInit:1:"}},
      // Copies are folded as sinks are added, and real repeats are kept.
      {init + line + init + init + end + end + line + line + line + line,
       {init, line, init + " x2", end + " x2", line + " x2", line + " x2"}},
      // A new process starts with one sink again. If the log's beginning is missing, the number of
      // sinks is unknown.
      {line + line + init + init + line + line + init + line,
       {line + " x2", init + " x2", line + " x2", init, line}},
      // Copies are not folded if their number is not a multiple of the number of sinks.
      {init + init + line + line + line, {init + " x2", line + " x3"}},
  };
  for (const auto& [log, records] : cases) EXPECT_EQ(Read(log), records) << log;
}

TEST(FileFollower, reads_what_is_appended_and_starts_again_in_a_new_file) {
  char folder[] = "/tmp/follower.XXXXXX";
  const std::string path = mkdtemp(folder) + std::string("/log"), next = path + ".next";
  const long descriptors = test::OpenDescriptors();
  auto follower = std::make_unique<FileFollower>(path);
  EXPECT_EQ(follower->Take(), "");
  for (const auto& [file, mode, text] : {std::tuple(path, std::ios::app, "one"),
                                         {path, std::ios::app, "two"},
                                         {path, std::ios::trunc, "three"},
                                         {next, std::ios::trunc, "longer"}}) {
    std::ofstream(file, mode) << text;
    std::filesystem::rename(file, path);
    EXPECT_EQ(follower->Take(), text);
  }
  std::filesystem::remove_all(folder);
  EXPECT_EQ(follower->Take(), "");
  follower.reset();
  EXPECT_EQ(test::OpenDescriptors(), descriptors);
}

TEST(HexDiff, counts_the_lines_that_it_does_not_show) {
  EXPECT_EQ(HexDiff(Bytes(40, 'a'), Bytes(49, 'b'), 1),
            "    - 0000  61616161 61616161 61616161 61616161  aaaaaaaaaaaaaaaa\n"
            "    + 0000  62626262 62626262 62626262 62626262  bbbbbbbbbbbbbbbb\n"
            "    ... and 3 more lines of 16 bytes\n");
}

}  // namespace
}  // namespace common
