#pragma once

#include <string>
#include <vector>

#include "ctl/session.h"

namespace overseer::ctl {

/// Reads the command line, carries the command out, and returns the exit code.
/// @param arguments  without the program's own name
int run(const std::vector<std::string>& arguments, Console& console,
        const Interruption& interruption);

}  // namespace overseer::ctl
