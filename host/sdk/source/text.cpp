#include <nv/text.h>

#include <cstdlib>
#include <limits>

std::vector<std::string> StringToVector(const std::string& text, const std::string& separator,
                                        bool keepEmpty) {
    std::vector<std::string> elements;
    if (text.empty()) return elements;
    const auto take = [&](std::size_t begin, std::size_t end) {
        if (end > begin || keepEmpty) elements.push_back(text.substr(begin, end - begin));
    };
    std::size_t begin = 0;
    if (!separator.empty()) {
        for (std::size_t at = text.find(separator); at != std::string::npos;
             at = text.find(separator, begin)) {
            take(begin, at);
            begin = at + separator.size();
        }
    }
    take(begin, text.size());
    return elements;
}

namespace nv {

int ToInt(const std::string& text) {
    // A long is wider than an int here, and strtol stops at its limits: both cases clamp below.
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (value > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

}  // namespace nv
