#include "journal.h"

#include <algorithm>
#include <utility>

namespace support {

std::vector<std::string> Journal::take() {
    return std::exchange(entries_, {});
}

std::vector<std::string> Journal::only(std::initializer_list<std::string> channels) const {
    std::vector<std::string> found;
    for (const std::string& entry : entries_) {
        const auto isOf = [&](const std::string& channel) {
            return entry.starts_with(channel + " ") || entry == channel;
        };
        if (std::any_of(channels.begin(), channels.end(), isOf)) found.push_back(entry);
    }
    return found;
}

std::vector<std::string> Journal::after(const std::string& start) const {
    std::vector<std::string> found;
    for (const std::string& entry : entries_) {
        if (entry.starts_with(start)) found.push_back(entry.substr(start.size()));
    }
    return found;
}

bool Journal::has(const std::string& entry) const {
    return std::find(entries_.begin(), entries_.end(), entry) != entries_.end();
}

}  // namespace support
