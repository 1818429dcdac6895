#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace depot {

/// A subcommand's work once it was parsed; answers an ExitCode.
using Command = std::function<int()>;

/// Adds `check` to the command line. `chosen` becomes its work when it is the one that was given.
void addCheckCommand(CLI::App& app, Command& chosen);

}  // namespace depot
