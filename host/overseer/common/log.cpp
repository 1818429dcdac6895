#include "common/log.h"

#include <log4cplus/logger.h>

#include <string_view>

namespace overseer::log {

void write(log4cplus::LogLevel level, const std::string& text, const char* file, int line) {
    const std::string_view path = file;
    const std::size_t folder = path.rfind('/');
    const char* name = folder == std::string_view::npos ? file : file + folder + 1;
    log4cplus::Logger::getRoot().log(level, text, name, line);
}

}  // namespace overseer::log
