#pragma once

#include <log4cplus/loglevel.h>
#include <string>

/// Lines of the host's own log, through log4cplus' root logger. Any thread.
namespace overseer::log {

void write(log4cplus::LogLevel level, const std::string& text, const char* file, int line);

inline void debug(const std::string& text, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
    write(log4cplus::DEBUG_LOG_LEVEL, text, file, line);
}
inline void info(const std::string& text, const char* file = __builtin_FILE(),
                 int line = __builtin_LINE()) {
    write(log4cplus::INFO_LOG_LEVEL, text, file, line);
}
inline void warn(const std::string& text, const char* file = __builtin_FILE(),
                 int line = __builtin_LINE()) {
    write(log4cplus::WARN_LOG_LEVEL, text, file, line);
}
inline void error(const std::string& text, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
    write(log4cplus::ERROR_LOG_LEVEL, text, file, line);
}

}  // namespace overseer::log
