#include "common/command_line.h"

#include <algorithm>
#include <iostream>
#include <map>

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
  std::string rows, line = Format("  {:{}}  ", name, kNameWidth - 4);
  const auto endLine = [&rows, &line] {
    rows += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    line.assign(kNameWidth, ' ');
  };
  if (line.size() > kNameWidth) endLine();
  std::istringstream words(text);
  for (std::string word; words >> word; line += word + ' ') {
    if (line.size() + word.size() > kLineWidth) endLine();
  }
  endLine();
  return rows;
}

std::string OptionRow(const CLI::Option& option) {
  const bool positional = option.get_positional();
  std::string name = option.get_name(positional, true);  // "-o,--output"
  if (const std::size_t comma = name.find(','); comma != std::string::npos) {
    name.insert(comma + 1, " ");
  }
  if (!positional && option.get_expected_max() > 0) name += " " + option.get_type_name();
  return Row(name, option.get_description());
}

std::string Section(const std::string& title, const std::string& rows) {
  return rows.empty() ? "" : "\n" + title + ":\n" + rows;
}

std::string Help(const CLI::App* app, const std::string&, CLI::AppFormatMode) {
  std::string arguments, commands;
  std::map<std::string, std::string> groups;
  for (const CLI::Option* option : app->get_options()) {
    (option->get_positional() ? arguments : groups[option->get_group()]) += OptionRow(*option);
  }
  for (const CLI::App* command : app->get_subcommands({})) {
    commands += Row(command->get_name(), command->get_description());
  }
  std::string help = app->get_description() + "\nUsage: " + Usage(*app) + "\n";
  help += Section("Arguments", arguments);
  for (const std::string& group : app->get_groups()) help += Section(group, groups[group]);
  help += Section("Commands", commands);
  return help + (app->get_footer().empty() ? "" : "\n" + app->get_footer() + "\n");
}

// Throws a UsageError that names the option unless `text` is one of `words`.
void RequireOneOf(const std::vector<std::string>& words, const std::string& text,
                  const std::string& option) {
  if (std::find(words.begin(), words.end(), text) != words.end()) return;
  throw UsageError(Format("{}: unknown value {}; expected one of {}{}", option, Quoted(text),
                          Joined(words), NearestHint(text, words)));
}

}  // namespace

Command::Command(const std::string& name, const std::string& about, const std::string& footer,
                 const std::string& version)
    : app_(std::make_shared<CLI::App>(about, name)) {
  app_->footer(footer)->formatter_fn(Help);
  app_->set_help_flag("-h,--help", "Show this help");
  if (!version.empty()) {
    app_->set_version_flag("--version", name + " " + version, "Show the version");
  }
}

Command* Command::AddCommand(const std::string& name, const std::string& about,
                             const std::string& footer) {
  Command& command = commands_.emplace_back(name, about, footer);
  app_->require_subcommand(1)->add_subcommand(command.app_);
  return &command;
}

void Command::AddFlag(const std::string& names, bool* target, const std::string& help) {
  app_->add_flag(names, *target, help)->group(group_);
}

void Command::AddText(const std::string& names, std::string* target, const std::string& help,
                      const std::string& shape) {
  app_->add_option(names, *target, help)->type_name(shape)->group(group_);
}

void Command::AddFile(const std::string& names, std::string* target, const std::string& help,
                      const std::string& shape) {
  const auto store = [names, target](const std::string& text) {
    if (text.empty()) throw UsageError(Format("{}: the name is empty; give a file name", names));
    *target = text;
  };
  app_->add_option_function<std::string>(names, store, help)->type_name(shape)->group(group_);
}

void Command::AddNumber(const std::string& names, std::optional<std::uint32_t>* target,
                        const std::string& help) {
  const auto store = [names, target](const std::string& text) {
    *target = static_cast<std::uint32_t>(RequireNumber(names, text));
  };
  app_->add_option_function<std::string>(names, store, help)->type_name("N")->group(group_);
}

void Command::AddChoice(const std::string& names, const std::vector<std::string>& words,
                        std::string* target, const std::string& help) {
  const auto store = [=](const std::string& text) {
    RequireOneOf(words, text, names);
    *target = text;
  };
  app_->add_option_function<std::string>(names, store, help)
      ->type_name(Joined(words, "|"))
      ->group(group_);
}

void Command::AddFlagOrChoice(const std::string& name, const std::vector<std::string>& words,
                              std::string* target, const std::string& help) {
  const auto check = [=](const std::string& text) {
    RequireOneOf(words, text, name);
    return std::string();
  };
  // The word in braces is stored if the flag has no value.
  CLI::Option* option = app_->add_flag(Format("{}{{{}}}", name, words.front()), *target, help);
  option->check(check)->group(group_);
}

void Command::AddList(const std::string& names, std::vector<std::string>* target,
                      const std::string& shape, const std::string& help,
                      const std::vector<std::string>& words) {
  CLI::Option* option = app_->add_option(names, *target, help)->type_name(shape)->group(group_);
  if (!words.empty()) {
    option->check([=](const std::string& text) {
      RequireOneOf(words, text, names);
      return std::string();
    });
  }
  // Without allow_extra_args(false), the option would also consume the words of the program.
  if (names[0] == '-') option->delimiter(',')->expected(1)->allow_extra_args(false)->take_all();
}

void Command::AddRepeated(const std::string& name,
                          const std::function<void(const std::string&)>& take,
                          const std::string& shape, const std::string& help) {
  const auto takeAll = [take](const std::vector<std::string>& texts) {
    std::for_each(texts.begin(), texts.end(), take);
  };
  app_->add_option_function<std::vector<std::string>>(name, takeAll, help)
      ->type_name(shape)
      ->type_size(1)
      ->expected(1)
      ->allow_extra_args(false)  // the following words may be the program
      ->take_all()
      ->trigger_on_parse()
      ->group(group_);
}

void Command::TakeProgram(std::vector<std::string>* target) {
  program_ = target;
  app_->prefix_command();
}

void Command::Require(const std::vector<std::string>& names) {
  for (const std::string& name : names) app_->get_option(name)->required();
}

void Command::MakeValueOptional(const std::string& name, const std::string& value) {
  app_->get_option(name)->expected(0, 1)->default_str(value);
}

bool Command::Has(const std::string& name) const { return app_->get_option(name)->count() > 0; }

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
  // CLI11's text for an option that has more values than it can take.
  if (const std::size_t end = message.find(": At Most"); end != std::string::npos) {
    throw UsageError(message.substr(0, end) + ": given more than once; give it once");
  }
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

int Command::Run(int argc, const char* const* argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  std::vector<std::string> separated;
  // Every word after "--" belongs to the program.
  const auto takesProgram = [&words](const Command& command) {
    return command.program_ != nullptr && words.front() == command.app_->get_name();
  };
  if (!words.empty() && std::any_of(commands_.begin(), commands_.end(), takesProgram)) {
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
      Chosen()->Complain(error.what());
    }
    Command* command = Chosen();
    if (command->program_ != nullptr) command->StoreProgram(separated);
    return command->action_();
  } catch (const UsageError& error) {
    throw UsageError(Format("{}\nTry '{} --help'.", error.what(), FullName(*Chosen()->app_)));
  }
}

}  // namespace common
