#include "services/log_setup.h"

#include <log4cplus/fileappender.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <log4cplus/spi/loggingevent.h>

#include <cerrno>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "services/log_layout.h"

namespace overseer {
namespace {

constexpr const char* kFileName = "overseer.log";

std::optional<log4cplus::LogLevel> levelOf(const std::string& name) {
    static constexpr std::pair<const char*, log4cplus::LogLevel> kLevels[] = {
        {"error", log4cplus::ERROR_LOG_LEVEL}, {"warn", log4cplus::WARN_LOG_LEVEL},
        {"info", log4cplus::INFO_LOG_LEVEL},   {"debug", log4cplus::DEBUG_LOG_LEVEL},
        {"trace", log4cplus::TRACE_LOG_LEVEL},
    };
    for (const auto& [known, level] : kLevels)
        if (name == known) return level;
    return std::nullopt;
}

/// Hands the texts of ERROR lines on.
class ErrorObserver : public log4cplus::Appender {
  public:
    explicit ErrorObserver(std::function<void(const std::string&)> observer)
        : observer_(std::move(observer)) {
        setThreshold(log4cplus::ERROR_LOG_LEVEL);
    }
    ~ErrorObserver() override { destructorImpl(); }
    ErrorObserver(const ErrorObserver&) = delete;
    ErrorObserver& operator=(const ErrorObserver&) = delete;
    void close() override { closed = true; }

  protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        observer_(event.getMessage());
    }

  private:
    std::function<void(const std::string&)> observer_;
};

/// Goes on at the end of the file as soon as that can be written again. The library would wait for
/// a second after a failure, and then begin the file anew.
class LastingLog : public log4cplus::RollingFileAppender {
  public:
    LastingLog(const std::string& file, long largest, int rotated)
        : RollingFileAppender(file, largest, rotated, true) {
        reopenDelay = 0;
    }

  protected:
    void open(std::ios_base::openmode mode) override {
        const bool anew = (mode & std::ios_base::trunc) != 0;
        RollingFileAppender::open(anew ? mode : mode | std::ios_base::app);
    }
};

Result<> checkWritable(const boost::filesystem::path& file) {
    errno = 0;
    if (std::ofstream(file.c_str(), std::ios::app)) return {};
    return failure("cannot write the log {}: {}", file.string(),
                   std::generic_category().message(errno));
}

}  // namespace

Result<> setUpLog(const LogSettings& settings) {
    const std::optional<log4cplus::LogLevel> level = levelOf(settings.level);
    if (!level)
        return failure("\"{}\" is no log level; one of error, warn, info, debug, trace is",
                       settings.level);
    const boost::filesystem::path file = settings.folder / kFileName;
    if (auto writable = checkWritable(file); !writable) return writable;
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.setLogLevel(*level);
    log4cplus::SharedAppenderPtr appender(new LastingLog(
        file.string(), static_cast<long>(settings.fileBytes), settings.rotatedFiles));
    appender->setLayout(std::make_unique<EscapingLayout>());
    root.addAppender(appender);
    return {};
}

void observeErrors(std::function<void(const std::string& text)> observer) {
    log4cplus::Logger::getRoot().addAppender(
        log4cplus::SharedAppenderPtr(new ErrorObserver(std::move(observer))));
}

void closeLog() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    // Without any appender log4cplus would complain on standard error about each further line.
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
}

}  // namespace overseer
