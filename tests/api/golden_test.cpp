// Compares what the library does with transcripts.txt. There, "# ..." begins a section with a fresh
// state. A line with ">" lists steps of the device (as options of zulisim) and of a driver. After
// " = " it shows the result and the recorded error of the last step, if that failed. Then follow
// the log lines of the library, as "| FUNCTION: ... | ...", and the operations of the device, as
// "<...>". "(name)" stands for the lines that follow "# (name)". The test performs the steps and
// must produce the whole file. Tags that are fixed numbers are kept. KALODLL_GOLDEN_WRITE=1
// rewrites the file.

#include "common/format.h"
#include "simulator/scenario/scenario_options.h"
#include "tests/api/calls.h"
#include "transport/cp_drem_session.h"

namespace test {
namespace {

using common::Format;

void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// Breaks a long line in front of " |".
std::string Folded(std::string line) {
  constexpr size_t kWidth = 159;
  for (size_t start = 0, end = 0; line.size() - start > kWidth; start = end + 1) {
    end = line.rfind(" |", start + kWidth);
    if (end == line.npos || end < start) break;
    line[end] = '\n';
  }
  return line + "\n";
}

class Golden : public CallsTest {
 protected:
  Golden() {
    traced = true;
    sink->onLine();
  }

  // Returns the line of the file, or for a step what the file must contain.
  std::string Reproduce(const std::string& line) {
    if (line[0] == '>') return Do(line);
    if (line.rfind("# (", 0) == 0) {
      common_.emplace_back(line.substr(1), "");
      defines_ = true;
    } else if (line[0] == '#') {
      defines_ = false;
      fresh_.Restore();
      engine.LoseDevice({0, ENODEV, true});  // drops unread replies
    } else if (defines_ && !line.empty()) {
      common_.back().second += " " + line;
    } else if (!line.empty()) {
      return "";
    }
    return line + "\n";
  }

 private:
  std::string Do(const std::string& line) {
    const size_t end = std::min(line.find(" = "), line.find_first_of("|<(") - 1);
    std::istringstream steps(line.substr(2, end - 2));
    std::string result;
    for (std::string step; std::getline(steps, step, ';');) result = DoStep(step);
    return Folded("> " + steps.str() + result + TakeTranscript());
  }

  // Returns the result of a call that failed.
  std::string DoStep(const std::string& step) {
    std::istringstream text(step);
    const Lines words{std::istream_iterator<std::string>(text), {}};
    for (const zulisim::InstructionOption& option : zulisim::InstructionOptions()) {
      if (option.name != words[0]) continue;
      zulisim::Scenario scenario;
      option.add(words[1], &scenario);
      Apply(scenario, &engine);
      return "";
    }
    // The other words name the command and the defects of the call.
    const bool numbered = words.size() > 1 && words[1].rfind("0x", 0) == 0;
    Arguments arguments(numbered ? std::stoul(words[1], nullptr, 16) : 0x10);
    arguments.used = static_cast<ClientSession*>(handle_);
    for (const Defect& defect : kDefects) {
      if (std::count(words.begin(), words.end(), defect.name) != 0) defect.apply(arguments);
    }
    if (words[0] == "SendIoctlToZuli") {
      return " = " + Thrown([&] { arguments.used->dremSessions[0]->SendIoctlToZuli(1, nullptr); });
    }
    const auto* call = std::find_if(std::begin(kCalls), std::end(kCalls),
                                    [&words](const auto& each) { return each.name == words[0]; });
    if (call == std::end(kCalls)) return " = no such call";
    const uint32_t status = call->make(arguments);
    if (arguments.handle != Arguments::kUnwritten) handle_ = arguments.handle;
    if (status == KALO_DLL_STATUS_SUCCESS) return "";
    return Format(" = {}, source {}, code {:x}", status, state.lastErrorSource, LastErrorCode());
  }

  // Returns what happened since the last step, with names for addresses, descriptors and lines that
  // many steps share.
  std::string TakeTranscript() {
    static const std::regex prefix("^(?:([~\\w]+):(\\d+: ))?");
    static const std::regex fixed("KaloInit|KaloCleanup|StartIoEx|Fenu\\w+");
    std::string transcript, function;
    for (const std::string& line : TakeRaw()) {
      std::smatch match;
      std::regex_search(line, match, prefix);
      const std::string name = match.str(1);
      transcript += name.empty() ? " " : name == function ? " | " : " | " + name + ": ";
      if (std::regex_match(name, fixed)) transcript += match.str(2);
      transcript += match.suffix();
      function = name;
    }
    Replace(transcript, "\n", "\\n");
    Replace(transcript, Format("FD: {}", opened), "FD: (descriptor)");
    Replace(transcript, Format("fd = {:x},", opened), "fd = (descriptor),");
    std::ostringstream null;  // differs between standard libraries
    null << static_cast<void*>(nullptr);
    Replace(transcript, ": " + null.str(), ": 0");
    for (const auto& [session, name] :
         {std::pair<void*, const char*>(state.kaloSessionA, "(session A)"),
          {state.kaloSessionB, "(session B)"},
          {state.fenuSession, "(display)"}}) {
      if (session != nullptr) Replace(transcript, Format("{}", session), name);
    }
    for (const auto& [name, lines] : common_) Replace(transcript, lines, name);
    return transcript;
  }

  const StateSnapshot fresh_;
  void* handle_ = nullptr;
  std::vector<std::pair<std::string, std::string>> common_;  // names and lines
  bool defines_ = false;
};

TEST_F(Golden, matches_the_transcripts) {
  std::ifstream file(TRANSCRIPTS);
  std::string before, now;
  for (std::string line; std::getline(file, line);) {
    before += line + "\n";
    now += Reproduce(line);
  }
  if (getenv("KALODLL_GOLDEN_WRITE") != nullptr) std::ofstream(TRANSCRIPTS) << now;
  EXPECT_EQ(now, before);
}

}  // namespace
}  // namespace test
