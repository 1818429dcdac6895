#include <fmt/format.h>

#include "services/statsd_client.h"

namespace overseer::statsd_format {
namespace {

bool isLetterOrDigit(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9');
}

std::string fit(const std::string& text, const char* alsoKept) {
    const std::string_view kept = alsoKept;
    std::string fitting = text.substr(0, kLongestText);
    for (char& byte : fitting)
        if (!isLetterOrDigit(byte) && kept.find(byte) == std::string_view::npos) byte = '_';
    return fitting;
}

std::string fitName(const std::string& name) {
    return fit(name, "_.");
}
std::string fitTag(const std::string& tag) {
    return fit(tag, "_.-");
}

}  // namespace

std::string taggedCount(const std::string& nameSpace, const std::string& name,
                        const std::string& tag) {
    std::string line = fmt::format("{}.{}:1|c", fitName(nameSpace), fitName(name));
    if (!tag.empty()) line += "|#subject:" + fitTag(tag);
    return line;
}

std::string plainCount(const std::string& nameSpace, const std::string& name, int value,
                       int sampleRate) {
    std::string line = fmt::format("{}.{}:{}|c", fitName(nameSpace), fitName(name), value);
    if (sampleRate > 1) line += fmt::format("|@{:.6f}", 1.0 / sampleRate);
    return line;
}

std::string timing(const std::string& nameSpace, const std::string& name,
                   std::uint64_t milliseconds) {
    std::string line = fmt::format("{}:{}|ms", fitName(nameSpace), milliseconds);
    if (!name.empty()) line += "|#file:" + fitTag(name);
    return line;
}

}  // namespace overseer::statsd_format
