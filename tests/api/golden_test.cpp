// Compares what the library does with transcripts. In each file in golden/, "# ..." begins a
// section with a fresh state, "> ...; ... = ..." are steps of the device and of a driver, and the
// result of the last one if it is not 0, "| FUNCTION: ... | ..." are log lines, and "<...>" is a
// device operation. "(name)" stands for the lines that follow "# name" in common_lines.txt. The
// test performs the steps and must produce the whole file. Tags that are fixed numbers are not
// replaced. KALODLL_GOLDEN_WRITE=1 rewrites the files.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>

#include "tests/api/calls.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

class Golden : public CallsTest, public testing::WithParamInterface<std::string> {
 protected:
  Golden() {
    traced = true;
    sink->onLine();
    std::ifstream file(COMMON_LINES);
    for (std::string line; std::getline(file, line);) {
      if (line[0] == '#') {
        common_.emplace_back("(" + line.substr(2) + ")\n", "");
      } else {
        common_.back().second += line + "\n";
      }
    }
  }

  void BeginSection() {
    fresh_.Restore();
    addresses_.clear();
  }

  // Performs the steps of a line, and returns the line with their result and transcript.
  std::string Do(const std::string& line) {
    const std::string steps = line.substr(2, line.find_first_of("=(") - 3);
    std::istringstream text(steps);
    std::string result;
    for (std::string step; std::getline(text, step, ';');) result = DoStep(step);
    const std::string transcript = TakeTranscript();
    const bool named = transcript[0] == '(' && transcript.find('\n') == transcript.size() - 1;
    return "> " + steps + (result == "0" ? "" : " = " + result) + (named ? " " : "\n") + transcript;
  }

 private:
  std::string Word(size_t i) const { return i < words_.size() ? words_[i] : ""; }
  bool Has(const std::string& word) const {
    return std::find(words_.begin() + 1, words_.end(), word) != words_.end();
  }

  // Returns the result of a call.
  std::string DoStep(const std::string& step) {
    std::istringstream text(step);
    words_ = {std::istream_iterator<std::string>(text), {}};
    if (Word(0) == "fail" || Word(0) == "lose") {  // "... OPERATION N" means the n-th from now
      const zulisim::Operation operation = zulisim::ParseOperation(Word(1));
      zulisim::FaultEffect effect = zulisim::DeviceLoss{};
      if (Word(0) == "fail") effect = zulisim::ErrnoFault{zulisim::ParseErrno(Word(2))};
      if (!isdigit(words_.back()[0])) words_.push_back("1");
      for (const std::string& word : words_) {
        if (!isdigit(word[0])) continue;
        engine.AddFault({operation, effect, {std::stoul(word), 1}});
      }
    } else if (Word(0) == "answer") {
      negative = Has("negative");
    } else if (Word(0) == "damage") {
      state.kaloInterfaceVersion = 1;
    } else if (Word(0) == "throw") {
      injected = {Has("connect") ? Point::kConnectClient : Point::kDisconnectAllClients,
                  Has("own") ? "refused" : nullptr};
    } else {
      return Call();
    }
    return "0";
  }

  // Uses the handles from the last initialisation. Further words name the defects of the call.
  std::string Call() {
    const std::pair<const char*, unsigned> kShapes[] = {{"null-input", kNullInput},
                                                        {"null-output", kNullOutput},
                                                        {"short-input", kShortInput},
                                                        {"short-output", kShortOutput},
                                                        {"null-data", kNullPrivateData}};
    unsigned shape = 0, tag = 0;
    for (const auto& [word, flag] : kShapes) shape |= Has(word) ? flag : 0;
    while (tag < 3 && !Has(kTags[tag].data)) ++tag;
    const bool numbered = Word(1).rfind("0x", 0) == 0;
    const auto number = static_cast<uint32_t>(numbered ? std::stoul(Word(1), nullptr, 16) : 0x10);
    Arguments arguments(shape, tag % 3, number);
    arguments.values = {number, Has("shared")};
    arguments.input = Message(number, 32, 2, 0xfedc1, 0xabc);
    arguments.output = Message(0xffffffff, 32, 0x7001, 0x1234abcd);
    if (arguments.in != nullptr) arguments.in = arguments.input.data();
    if (arguments.out != nullptr) arguments.out = arguments.output.data();
    if (Has("long")) arguments.inLength = arguments.outLength = 0xFFFFFFFF;
    if (!Has("null-handle")) arguments.used = static_cast<ClientSession*>(handle_);
    auto* const session = static_cast<ClientSession*>(handle_);
    if (Word(0) == "ClientSession::IoMessage") {
      return Thrown(
          [&] { session->IoMessage(arguments.in, 32, arguments.out, 32, nullptr, nullptr); });
    }
    if (Word(0) == "CpDremSession::SendIoctlToZuli") {
      return Thrown([&] { session->dremSessions[0]->SendIoctlToZuli(1, nullptr); });
    }
    const auto* call = std::find_if(std::begin(kCalls), std::end(kCalls),
                                    [this](const auto& each) { return each.name == Word(0); });
    if (call == std::end(kCalls)) return "no such call";
    const std::string status = std::to_string(call->make(arguments));
    if (arguments.handle != Arguments::kUnwritten) handle_ = arguments.handle;
    return status;
  }

  // Returns the lines since the last step, with names for addresses and descriptors.
  std::string TakeTranscript() {
    static const std::regex fixed("(KaloInit|KaloCleanup|StartIoEx|Fenu[A-Za-z]+3?):[0-9]+: .*");
    static const std::regex pointer("0x[0-9a-f]{6,}");
    std::string transcript;
    for (std::string line : TakeRaw()) {
      if (line[0] != '<') line = "| " + (std::regex_match(line, fixed) ? line : WithoutTag(line));
      Replace(line, "FD: " + std::to_string(opened), "FD: (descriptor)");
      Replace(line, "fd = " + Hex(static_cast<uint64_t>(opened)) + ",", "fd = (descriptor),");
      std::smatch found;
      if (std::regex_search(line, found, pointer)) {
        const std::string name = "(address " + std::to_string(1 + addresses_.size()) + ")";
        Replace(line, found.str(), addresses_.emplace(found.str(), name).first->second);
      }
      if (line.back() == '\n') line.replace(line.size() - 1, 1, "\\n");
      transcript += line + "\n";
    }
    for (const auto& [name, lines] : common_) Replace(transcript, lines, name);
    return Joined(transcript);
  }

  // Joins consecutive lines of one function, and consecutive operations and names, up to a width.
  static std::string Joined(const std::string& transcript) {
    constexpr size_t kWidth = 100;
    std::string joined, line, function;
    std::istringstream lines(transcript);
    for (std::string next; std::getline(lines, next);) {
      const bool logged = next[0] == '|';
      const std::string same = logged ? next.substr(0, next.find(':') + 1) : "";
      const std::string rest =
          logged ? " | " + next.substr(next.find_first_not_of(' ', same.size())) : " " + next;
      if (!line.empty() && same == function && line.size() + rest.size() <= kWidth) {
        line += rest;
      } else {
        joined += line + (line.empty() ? "" : "\n");
        line = next;
        function = same;
      }
    }
    return joined + line + (line.empty() ? "" : "\n");
  }

  static void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
      text.replace(at, from.size(), to);
    }
  }

  const StateSnapshot fresh_;
  std::vector<std::string> words_;
  void* handle_ = nullptr;
  std::map<std::string, std::string> addresses_;
  std::vector<std::pair<std::string, std::string>> common_;  // names and lines
};

TEST_P(Golden, matches_its_file) {
  const std::string path = GOLDEN_FOLDER "/" + GetParam() + ".txt";
  std::ifstream file(path);
  std::string before, now;
  for (std::string line; std::getline(file, line);) {
    before += line + "\n";
    if (line[0] == '#') BeginSection();
    if (line[0] == '#') now += line + "\n";
    if (line[0] == '>') now += Do(line);
  }
  if (getenv("KALODLL_GOLDEN_WRITE") != nullptr) std::ofstream(path) << now;
  EXPECT_EQ(now, before);
}

Lines Names() {
  Lines names;
  for (const auto& entry : std::filesystem::directory_iterator(GOLDEN_FOLDER)) {
    names.push_back(entry.path().stem().string());
  }
  return names;
}

INSTANTIATE_TEST_SUITE_P(Transcript, Golden, testing::ValuesIn(Names()),
                         [](const auto& file) { return file.param; });

}  // namespace
}  // namespace test
