#pragma once

#include "depot/publish/check_command.h"

namespace depot {

/// Adds `publish`, `releases` and `rollback` to the command line. `chosen` becomes the work of the
/// one that was given.
void addReleaseCommands(CLI::App& app, Command& chosen);

}  // namespace depot
