#pragma once

#include <string>

namespace depot {

/// The program's exit codes.
enum ExitCode {
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitRefused = 3,  ///< packages have errors
};

/// Says on standard error why a command failed.
/// @return kExitFailed
int fail(const std::string& reason);

/// Runs `driver-depot` with these arguments. Answers go to standard output, one line per problem to
/// standard error.
/// @return an ExitCode
int runCommandLine(int argc, char** argv);

}  // namespace depot
