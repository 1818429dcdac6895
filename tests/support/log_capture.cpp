#include "log_capture.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

namespace support {

namespace {

class JournalAppender : public log4cplus::Appender {
  public:
    JournalAppender(Journal& journal, std::shared_ptr<std::vector<LogRecord>> records)
        : journal_(journal), records_(std::move(records)) {}
    ~JournalAppender() override { destructorImpl(); }
    void close() override { closed = true; }

  protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::string level = log4cplus::getLogLevelManager().toString(event.getLogLevel());
        records_->push_back(
            {level, event.getMessage(), event.getFile(), event.getFunction(), event.getLine()});
        // The network's own lines come between an agent's steps, and are none of them.
        const std::string text = event.getMessage();
        if (!text.starts_with("network: ")) journal_.add("log " + level + " " + text);
    }

  private:
    Journal& journal_;
    std::shared_ptr<std::vector<LogRecord>> records_;
};

}  // namespace

LogCapture::LogCapture(Journal& journal)
    : records_(std::make_shared<std::vector<LogRecord>>()),
      appender_(new JournalAppender(journal, records_)) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    previousLevel_ = root.getLogLevel();
    root.removeAllAppenders();
    root.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    root.addAppender(appender_);
}

LogCapture::~LogCapture() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAppender(appender_);
    root.setLogLevel(previousLevel_);
}

void LogCapture::setLevel(log4cplus::LogLevel level) {
    log4cplus::Logger::getRoot().setLogLevel(level);
}

}  // namespace support
