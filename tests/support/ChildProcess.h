#ifndef ZYN_TESTS_CHILDPROCESS_H
#define ZYN_TESTS_CHILDPROCESS_H

#include <string>
#include <vector>

struct ChildResult {
  int status = -1;  // exit status, or 128 + signal number
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `argv[0]` with exactly the arguments `argv` (entry 0 included) and the
// environment entries "NAME=value" of `env` added to ours (an entry "NAME" without '='
// removes the variable), feeding `input` on standard input. Waits for it to end.
ChildResult RunChild(std::vector<std::string> const& argv, std::vector<std::string> const& env = {},
                     std::string const& input = "", std::string const& workingDir = "");

// Runs the program under test (or `exe`) with `args`, diagnostics off and the system's
// texts in English; `env` then changes the environment as for RunChild.
ChildResult RunZyn(std::vector<std::string> const& args, std::vector<std::string> const& env = {},
                   std::string const& cwd = "", std::string const& exe = ZYN_EXE_PATH, std::string const& input = "");

// Runs `script` in /bin/sh in a private mount namespace with an empty /tmp of its own
// (the fixed names of the temporary copy and the default report are then shared with no
// other run), from that /tmp, with "$0" the program under test: where the program stands
// under the old /tmp (a build folder there), that /tmp is bound at /mnt first and "$0"
// names it there. Killed after a minute.
ChildResult RunInPrivateTmp(std::string const& script);

// The path of the running test binary, for probes that must start in a fresh process.
std::string SelfExecutable();

#endif
