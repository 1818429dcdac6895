#pragma once

#include <log4cplus/layout.h>
#include <string>

#include "state/utc_time.h"

namespace overseer {

/// `text` with each control character (and DEL) as \n, \r, \t or \xHH and each backslash doubled,
/// so that what comes from outside can neither forge a line nor steer a terminal. C1 controls in
/// UTF-8 and the Unicode line separators are escaped byte by byte.
std::string escapeControlCharacters(const std::string& text);

/// `2026-11-23T01:02:03.456Z INFO  TEXT (FILE:LINE)`, one line for each event.
class EscapingLayout : public log4cplus::Layout {
  public:
    void formatAndAppend(log4cplus::tostream& output,
                         const log4cplus::spi::InternalLoggingEvent& event) override;

  private:
    // Of the last line, since lines come in bursts; guarded by the appender's lock.
    UtcMilliseconds time_ = 0;
    std::string timeText_ = utcText(0);
};

}  // namespace overseer
