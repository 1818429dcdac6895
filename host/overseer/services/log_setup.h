#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>
#include <functional>
#include <string>

#include "common/result.h"

namespace overseer {

/// How the log is kept.
struct LogSettings {
    boost::filesystem::path folder;  ///< of `overseer.log`; exists
    std::string level = "info";      ///< error, warn, info, debug or trace
    std::size_t fileBytes = 10u << 20;
    int rotatedFiles = 5;  ///< overseer.log.1 to .5 beside it
};

/// Sets log4cplus' root logger up; again with other settings, those count from then on. Lines read
/// `TIME LEVEL TEXT (FILE:LINE)`; control characters in the text are escaped here and nowhere else.
/// An error when the level is unknown or the file cannot be written. Not while other threads log.
Result<> setUpLog(const LogSettings& settings);

/// Has `observer` called with every line's text of level ERROR, on the thread that logs, until
/// setUpLog or closeLog is called.
void observeErrors(std::function<void(const std::string& text)> observer);

/// Flushes and closes the log files; before the process is replaced or ends.
void closeLog();

}  // namespace overseer
