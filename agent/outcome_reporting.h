#pragma once

#include <fmt/format.h>
#include <log4cplus/logger.h>

#include <string>

namespace driverupdate {

/// The root logger, taken when the library is loaded. Sets the host's logging up on first use.
const log4cplus::Logger& logger();

/// Source name of every log record of the agent: one for all files, as log filters know it.
inline constexpr const char* kLogSource =
    "Drivers/norvane_agent_driverupdate/nvw/norvane_agent_driverupdate";

/// Names of severities, for whoever shows outcomes by severity.
extern const std::string kSeverityCritical;
extern const std::string kSeverityWarning;
extern const std::string kSeverityInfo;

/// Prefix of the agent's metrics.
extern const std::string kMetricNamespace;
/// Subcategory of history records about updates.
extern const std::string kAutoUpdate;

}  // namespace driverupdate

/// Logs a text or an fmt template with its values, at a level of log4cplus. A macro, so that the
/// record carries the calling method's signature, and so that a disabled level formats nothing.
#define DRIVERUPDATE_LOG(level, ...)                                                         \
    do {                                                                                     \
        const log4cplus::Logger& agentLogger = driverupdate::logger();                       \
        if (agentLogger.isEnabledFor(level)) {                                               \
            agentLogger.forcedLog(level, fmt::format(__VA_ARGS__), driverupdate::kLogSource, \
                                  __LINE__, __PRETTY_FUNCTION__);                            \
        }                                                                                    \
    } while (false)
#define DRIVERUPDATE_DEBUG(...) DRIVERUPDATE_LOG(log4cplus::DEBUG_LOG_LEVEL, __VA_ARGS__)
#define DRIVERUPDATE_INFO(...) DRIVERUPDATE_LOG(log4cplus::INFO_LOG_LEVEL, __VA_ARGS__)
#define DRIVERUPDATE_WARN(...) DRIVERUPDATE_LOG(log4cplus::WARN_LOG_LEVEL, __VA_ARGS__)
#define DRIVERUPDATE_ERROR(...) DRIVERUPDATE_LOG(log4cplus::ERROR_LOG_LEVEL, __VA_ARGS__)
