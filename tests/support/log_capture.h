#pragma once

#include <log4cplus/appender.h>

#include <string>
#include <vector>

#include "journal.h"

namespace support {

/// One log record as its writer made it.
struct LogRecord {
    std::string level;
    std::string message;
    std::string file;
    std::string function;
    int line = 0;
};

/// While it lives, everything that goes to the root logger goes into the journal, as
/// "log LEVEL text", and nowhere else.
class LogCapture {
  public:
    explicit LogCapture(Journal& journal);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& records() const { return *records_; }
    /// Lets through only what is at least as severe, as an operator would set it.
    void setLevel(log4cplus::LogLevel level);

  private:
    std::shared_ptr<std::vector<LogRecord>> records_;
    log4cplus::SharedAppenderPtr appender_;
    log4cplus::LogLevel previousLevel_;
};

}  // namespace support
