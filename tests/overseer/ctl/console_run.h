#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "ctl/command_line.h"

namespace overseer::ctl {

/// What a whole run of `overseerctl` came to.
struct Ran {
    int code;
    std::string out;
    std::string err;
};

/// Runs it against the host of that root. @param interactive  `typed` comes from a terminal
inline Ran runOn(const std::string& root, std::vector<std::string> arguments,
                 const std::string& typed = "", bool interactive = false) {
    std::istringstream in(typed);
    std::ostringstream out;
    std::ostringstream err;
    Console console{in, out, err, interactive, interactive, false};
    const Interruption interruption;
    arguments.insert(arguments.begin(), {"--root", root});
    const int code = run(arguments, console, interruption);
    return {code, out.str(), err.str()};
}

}  // namespace overseer::ctl
