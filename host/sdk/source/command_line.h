#pragma once

#include <optional>
#include <string>
#include <vector>

namespace nv {

/// A command line, taken apart.
struct CommandLine {
    std::vector<std::string> words;  ///< program and arguments, at least one
    std::string outputFile;          ///< of `>> FILE`, empty without one
    bool errorsToOutput = false;     ///< `2>&1` after `>> FILE`: both streams go to that file
};

/// Takes a line apart as nv::system understands it: blanks separate words, everything between two
/// double quotes is literal, `>> FILE` and `2>&1` are redirections. Whatever else would mean
/// something to a shell is refused outside quotes rather than passed on as it is.
/// @return nothing, with the reason in `problem`, for a line that is refused
std::optional<CommandLine> parseCommandLine(const std::string& line, std::string& problem);

}  // namespace nv
