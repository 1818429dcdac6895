#include "depot/snapshot.h"

#include <utility>

namespace depot {

Snapshot::Snapshot(std::vector<Entry> entries) : entries_(std::move(entries)) {
    positions_.reserve(entries_.size());
    for (std::size_t at = 0; at < entries_.size(); ++at)
        positions_.emplace(entries_[at]->document.filename, at);
}

std::optional<std::size_t> Snapshot::position(std::string_view filename) const {
    const auto found = positions_.find(filename);
    if (found == positions_.end()) return std::nullopt;
    return found->second;
}

Snapshot::Entry Snapshot::find(std::string_view filename) const {
    const auto at = position(filename);
    return at ? entries_[*at] : nullptr;
}

}  // namespace depot
