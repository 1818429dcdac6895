#include "services/log_layout.h"

#include <fmt/format.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <chrono>
#include <iomanip>

namespace overseer {
namespace {

/// How many bytes at `at` make a character that must not stand as it is: a control, a backslash, a
/// C1 control (U+0080 to U+009F), a line or paragraph separator (U+2028, U+2029); 0 for any other.
std::size_t lengthToEscape(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t offset) {
        return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0;
    };
    const int first = byte(0);
    if (first < 0x20 || first == 0x7F || first == '\\') return 1;
    if (first == 0xC2 && byte(1) >= 0x80 && byte(1) <= 0x9F) return 2;
    if (first == 0xE2 && byte(1) == 0x80 && (byte(2) == 0xA8 || byte(2) == 0xA9)) return 3;
    return 0;
}

void appendEscaped(std::string& output, char byte) {
    switch (byte) {
        case '\n':
            output += "\\n";
            return;
        case '\r':
            output += "\\r";
            return;
        case '\t':
            output += "\\t";
            return;
        case '\\':
            output += "\\\\";
            return;
        default:
            output += fmt::format("\\x{:02X}", static_cast<unsigned char>(byte));
    }
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string escapeControlCharacters(const std::string& text) {
    std::string output;
    output.reserve(text.size());
    std::size_t plain = 0;  // from here on nothing had to be escaped so far
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = lengthToEscape(text, at);
        if (length == 0) {
            ++at;
            continue;
        }
        output.append(text, plain, at - plain);
        for (plain = at + length; at < plain; ++at) appendEscaped(output, text[at]);
    }
    return output.append(text, plain, std::string::npos);
}

void EscapingLayout::formatAndAppend(log4cplus::tostream& output,
                                     const log4cplus::spi::InternalLoggingEvent& event) {
    const UtcMilliseconds time = std::chrono::duration_cast<std::chrono::milliseconds>(
                                     event.getTimestamp().time_since_epoch())
                                     .count();
    if (time != time_) {
        time_ = time;
        timeText_ = utcText(time);
    }
    output << timeText_ << ' ' << std::left << std::setw(5)
           << llmCache.toString(event.getLogLevel()) << ' '
           << escapeControlCharacters(event.getMessage());
    if (!event.getFile().empty())
        output << " (" << escapeControlCharacters(baseName(event.getFile())) << ':'
               << event.getLine() << ')';
    output << '\n';
}

}  // namespace overseer
