#include "common/command_line.h"

#include <algorithm>
#include <iostream>
#include <iterator>

#include <CLI/CLI.hpp>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"

namespace common {
namespace {

constexpr std::size_t kNameWidth = 24;
constexpr std::size_t kLineWidth = 100;

// "zulisim run"
std::string FullName(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return (parent == nullptr ? "" : FullName(*parent) + " ") + command.get_name();
}

std::vector<std::string> CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

// "zulisim record [OPTIONS] -o FILE [--] PROGRAM [ARGUMENTS...]"
std::string Usage(const CLI::App& app) {
  std::string usage = FullName(app) + " [OPTIONS]";
  for (const CLI::Option* option : app.get_options()) {
    const std::string name = option->get_name(option->get_positional());
    if (option->get_positional()) {
      const std::string word = name + (option->get_expected_max() > 1 ? "..." : "");
      usage += option->get_required() ? " " + word : " [" + word + "]";
    } else if (option->get_required()) {
      usage += " " + name + " " + option->get_type_name();
    }
  }
  if (!app.get_subcommands({}).empty()) usage += " COMMAND";
  return usage + (app.get_prefix_command() ? " [--] PROGRAM [ARGUMENTS...]" : "");
}

// Returns a row of the help: the name, and its description wrapped in the second column.
std::string Row(const std::string& name, const std::string& text) {
  std::string row = "  " + name;
  std::size_t column = row.size();
  if (column > kNameWidth - 2) {
    row += '\n';
    column = 0;
  }
  row.append(kNameWidth - column, ' ');
  column = kNameWidth;
  std::istringstream words(text);
  for (std::string word, blank; words >> word; blank = " ") {
    if (!blank.empty() && column + 1 + word.size() > kLineWidth) {
      row += '\n' + std::string(kNameWidth, ' ');
      column = kNameWidth;
      blank.clear();
    }
    row += blank + word;
    column += blank.size() + word.size();
  }
  return row + '\n';
}

class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
    std::string help = app->get_description() + "\nUsage: " + Usage(*app) + "\n";
    help +=
        Options(*app, "Arguments", [](const CLI::Option* each) { return each->get_positional(); });
    for (const std::string& group : app->get_groups()) {
      help += Options(*app, group, [&group](const CLI::Option* each) {
        return each->nonpositional() && each->get_group() == group;
      });
    }
    std::string commands;
    for (const CLI::App* command : app->get_subcommands({})) {
      commands += Row(command->get_name(), command->get_description());
    }
    if (!commands.empty()) help += "\nCommands:\n" + commands;
    return help + (app->get_footer().empty() ? "" : "\n" + app->get_footer() + "\n");
  }

 private:
  static std::string Options(const CLI::App& app, const std::string& title,
                             const std::function<bool(const CLI::Option*)>& isListed) {
    std::string rows;
    for (const CLI::Option* option : app.get_options(isListed)) {
      const bool positional = option->get_positional();
      const bool takesValue = !positional && option->get_expected_max() > 0;
      std::string name = option->get_name(positional, true);  // "-o,--output"
      if (const std::size_t comma = name.find(','); comma != std::string::npos) {
        name.insert(comma + 1, " ");
      }
      rows +=
          Row(name + (takesValue ? " " + option->get_type_name() : ""), option->get_description());
    }
    return rows.empty() ? "" : "\n" + title + ":\n" + rows;
  }
};

// Returns the index of `text` in `words`. If it is not one of them, throws a UsageError that names
// the option.
std::size_t IndexOf(const std::string& text, const std::vector<std::string>& words,
                    const std::string& option) {
  const auto found = std::find(words.begin(), words.end(), text);
  if (found == words.end()) {
    throw UsageError(
        Format("{}: unknown value {}; expected {}", option, Quoted(text), Joined(words, " or ")));
  }
  return static_cast<std::size_t>(found - words.begin());
}

}  // namespace

Option& Option::Require() {
  option_->required();
  return *this;
}

Option& Option::Exclude(const Option& other) {
  option_->excludes(other.option_);
  return *this;
}

Option& Option::MakeValueOptional(const std::string& value) {
  option_->expected(0, 1)->default_str(value);
  return *this;
}

Command::Command(CLI::App* app) : app_(app) {}

Command* Command::AddCommand(const std::string& name, const std::string& about) {
  app_->require_subcommand(1);
  return &commands_.emplace_back(app_->add_subcommand(name, about));
}

void Command::SetFooter(const std::string& text) {
  app_->footer(text.substr(text.find_first_not_of('\n')));
}

Option Command::InGroup(CLI::Option* option) const { return Option(option->group(group_)); }

Option Command::AddFlag(const std::string& names, bool* target, const std::string& help) {
  return InGroup(app_->add_flag(names, *target, help));
}

Option Command::AddText(const std::string& names, std::string* target, const std::string& shape,
                        const std::string& help) {
  return InGroup(app_->add_option(names, *target, help)->type_name(shape));
}

Option Command::AddFile(const std::string& names, std::string* target, const std::string& help,
                        const std::string& shape) {
  const auto store = [names, target](const std::string& text) {
    if (text.empty()) throw UsageError(Format("{}: the name is empty; give a file name", names));
    *target = text;
  };
  return InGroup(app_->add_option_function<std::string>(names, store, help)->type_name(shape));
}

Option Command::AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                          const std::string& help) {
  const auto store = [names, target](const std::string& text) {
    *target = static_cast<std::uint32_t>(RequireNumber(names, text));
  };
  return InGroup(app_->add_option_function<std::string>(names, store, help)->type_name("N"));
}

Option Command::AddWord(const std::string& names, const std::vector<std::string>& words,
                        const std::function<void(std::size_t)>& choose, const std::string& help) {
  const auto store = [=](const std::string& text) { choose(IndexOf(text, words, names)); };
  return InGroup(
      app_->add_option_function<std::string>(names, store, help)->type_name(Joined(words, "|")));
}

Option Command::AddFlagOrWord(const std::string& name, const std::vector<std::string>& words,
                              std::string* target, const std::string& help) {
  const auto store = [=](std::string& text) {
    if (text == "true") text = words.front();  // stored if the flag has no value
    IndexOf(text, words, name);
    return std::string();
  };
  CLI::Option* option = app_->add_flag(name, *target, help);
  return InGroup(option->transform(CLI::Validator(store, "")));
}

Option Command::AddList(const std::string& names, std::vector<std::string>* target,
                        const std::string& shape, const std::string& help) {
  CLI::Option* option = app_->add_option(names, *target, help)->type_name(shape);
  // Without allow_extra_args(false), the option would also consume the words of the program.
  if (names[0] == '-') option->delimiter(',')->expected(1)->allow_extra_args(false)->take_all();
  return InGroup(option);
}

Option Command::AddRepeated(const std::string& name,
                            const std::function<void(const std::string&)>& take,
                            const std::string& shape, const std::string& help) {
  const auto takeAll = [take](const std::vector<std::string>& texts) {
    std::for_each(texts.begin(), texts.end(), take);
  };
  return InGroup(app_->add_option_function<std::vector<std::string>>(name, takeAll, help)
                     ->type_name(shape)
                     ->type_size(1)
                     ->expected(1)
                     ->allow_extra_args(false)  // the following words may be the program
                     ->take_all()
                     ->trigger_on_parse());
}

void Command::TakeProgram(std::vector<std::string>* target) {
  program_ = target;
  app_->prefix_command();
}

bool Command::Has(const std::string& name) const {
  const CLI::Option* option = app_->get_option_no_throw(name);
  return option != nullptr && option->count() > 0;
}

std::string Command::ValueOf(const std::string& name) const {
  const CLI::Option* option = app_->get_option_no_throw(name);
  return option == nullptr || option->results().empty() ? "" : option->results().front();
}

Command* Command::Chosen() {
  for (Command& command : commands_) {
    if (command.app_->parsed()) return command.Chosen();
  }
  return this;
}

// `separated` holds the words after "--". Without "--", the program begins with the first word that
// is neither an option nor a value of an option.
void Command::StoreProgram(const std::vector<std::string>& separated) {
  std::vector<std::string> words = app_->remaining();
  if (!words.empty() && words.front()[0] == '-') Complain("");
  words.insert(words.end(), separated.begin(), separated.end());
  if (!words.empty() && words.front() == "--") words.erase(words.begin());
  if (words.empty() || words.front().empty()) {
    throw UsageError("no program given; usage: " + Usage(*app_));
  }
  *program_ = std::move(words);
}

// Throws a UsageError that names the wrong word. `message` is the text from the parser library.
void Command::Complain(const std::string& message) const {
  const std::vector<std::string> commands = CommandNames(*app_);
  const std::vector<std::string> words = app_->remaining();
  const std::string word = words.empty() ? "" : words.front();
  if (word[0] == '-') {
    std::vector<std::string> known;
    for (const CLI::Option* option : app_->get_options()) known.push_back(option->get_name());
    throw UsageError("unknown option " + Quoted(word) + NearestHint(word, known));
  }
  if (commands.empty()) {
    const bool unexpected = !words.empty() && program_ == nullptr;
    throw UsageError(unexpected ? "unexpected argument " + Quoted(word) : message);
  }
  throw UsageError(
      (words.empty() ? "no command given" : Format("unknown command {}", Quoted(word))) +
      "; expected one of " + Joined(commands));
}

CommandLine::CommandLine(const std::string& name, const std::string& about,
                         const std::string& version)
    : app_(std::make_unique<CLI::App>(about, name)) {
  app_->formatter(std::make_shared<HelpFormatter>());
  app_->set_help_flag("-h,--help", "Show this help");
  app_->set_version_flag("--version", name + " " + version, "Show the version");
  root_ = std::make_unique<Command>(app_.get());
}

CommandLine::~CommandLine() = default;

int CommandLine::Run(int argc, const char* const* argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  std::vector<std::string> separated;
  // Every word after "--" belongs to the program.
  const bool takesProgram = std::any_of(root_->commands_.begin(), root_->commands_.end(),
                                        [&words](const Command& command) {
                                          return command.program_ != nullptr && !words.empty() &&
                                                 words.front() == command.app_->get_name();
                                        });
  if (takesProgram) {
    const auto separator = std::find(words.begin(), words.end(), "--");
    separated.assign(separator, words.end());
    words.erase(separator, words.end());
  }
  std::reverse(words.begin(), words.end());  // the parser expects them in reverse order
  try {
    try {
      app_->parse(words);
    } catch (const CLI::Success& request) {
      return app_->exit(request);
    } catch (const CLI::ParseError& error) {
      root_->Chosen()->Complain(error.what());
    }
    Command* command = root_->Chosen();
    if (command->program_ != nullptr) command->StoreProgram(separated);
    return command->action_();
  } catch (const UsageError& error) {
    throw UsageError(
        Format("{}\nTry '{} --help'.", error.what(), FullName(*root_->Chosen()->app_)));
  }
}

}  // namespace common
