#include "services/log_layout.h"

#include <fmt/format.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

#include <chrono>

#include "state/utc_time.h"

namespace overseer {
namespace {

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

/// Length in bytes of the C1 control (U+0080 to U+009F) or the line or paragraph separator (U+2028,
/// U+2029) that begins at `at`, 0 for anything else.
std::size_t hiddenControl(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t offset) {
        return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0;
    };
    if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) <= 0x9F) return 2;
    if (byte(0) == 0xE2 && byte(1) == 0x80 && (byte(2) == 0xA8 || byte(2) == 0xA9)) return 3;
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
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t hidden = hiddenControl(text, at);
        const std::size_t length = hidden == 0 ? 1 : hidden;
        const bool escape =
            hidden != 0 || isControl(static_cast<unsigned char>(text[at])) || text[at] == '\\';
        for (const std::size_t end = at + length; at < end; ++at) {
            if (escape)
                appendEscaped(output, text[at]);
            else
                output += text[at];
        }
    }
    return output;
}

void EscapingLayout::formatAndAppend(log4cplus::tostream& output,
                                     const log4cplus::spi::InternalLoggingEvent& event) {
    const UtcMilliseconds time = std::chrono::duration_cast<std::chrono::milliseconds>(
                                     event.getTimestamp().time_since_epoch())
                                     .count();
    output << utcText(time) << ' ' << fmt::format("{:<5}", llmCache.toString(event.getLogLevel()))
           << ' ' << escapeControlCharacters(event.getMessage());
    if (!event.getFile().empty())
        output << " (" << escapeControlCharacters(baseName(event.getFile())) << ':'
               << event.getLine() << ')';
    output << '\n';
}

}  // namespace overseer
