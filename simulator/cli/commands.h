#pragma once

#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace zulisim {

// zulisim's own failure; the same for every command that starts a program.
inline constexpr int kOwnFailure = 125;
// With --strict, something that was asked for has not happened.
inline constexpr int kMissed = 122;

// What the command line asks for.
struct Invocation {
  std::vector<std::string> program;  // all that follows "--", or the first word that is no option's
  bool separated = false;            // there was a "--"
  std::function<int()> run;          // set by the command that is chosen; returns the exit status
};

// Each adds a command to `app`; `invocation` must outlive it.
void DefineRun(CLI::App* app, Invocation* invocation);
void DefineCheck(CLI::App* app, Invocation* invocation);
void DefineRecord(CLI::App* app, Invocation* invocation);
void DefineReplay(CLI::App* app, Invocation* invocation);
void DefineShow(CLI::App* app, Invocation* invocation);
void DefineServe(CLI::App* app, Invocation* invocation);
void DefineTell(CLI::App* app, Invocation* invocation);

// Has `command` run `action` for the program that the command line ends with, without which it is
// refused; `form` is what goes before the program, as in "[OPTIONS]". Implemented beside DefineRun.
void DefineProgramRun(CLI::App* command, Invocation* invocation, const std::string& form,
                      const std::function<int()>& action);

}  // namespace zulisim
