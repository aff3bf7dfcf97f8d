#pragma once

#include <stdexcept>
#include <string>

namespace zulisim {

// Says that a program cannot be started or served. The exit status is the one that a shell would
// return.
class ProgramError : public std::runtime_error {
 public:
  ProgramError(int status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// Ends the message about a program that the preload library cannot serve.
#ifdef ZULISIM_HAS_FUSE
inline constexpr const char* kUseFuse = "; use --device fuse";
#else
inline constexpr const char* kUseFuse = "";
#endif

inline constexpr int kCannotRun = 126;
inline constexpr int kNotFound = 127;

// Returns the path of the program `name`. Searches PATH unless the name contains a slash. Throws
// ProgramError.
std::string FindProgram(const std::string& name);

// The same, but throws ProgramError unless the program uses the same dynamic linker as zulisim,
// which loads the preload library. Does not check scripts, or privileges that the program gains
// when it starts.
std::string FindPreloadable(const std::string& name);

}  // namespace zulisim
