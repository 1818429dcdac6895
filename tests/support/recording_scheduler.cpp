#include "recording_scheduler.h"

#include <stdexcept>

namespace support {

std::uint32_t RecordingScheduler::FindEventId(const std::string& name) const {
    journal_.add("find event " + name);
    for (const auto& [id, known] : names_) {
        if (known == name) return id;
    }
    return 0;
}

bool RecordingScheduler::RenameEvent(std::uint32_t eventId, const std::string& name) {
    journal_.add("rename event " + std::to_string(eventId) + " " + name);
    if (failRenames_) throw std::runtime_error("the schedule is damaged");
    const auto found = names_.find(eventId);
    if (found == names_.end()) return false;
    found->second = name;
    return true;
}

std::uint32_t RecordingScheduler::AddEntry(const Entry& entry) {
    journal_.add("add event " + entry->info().name());
    if (refuseEntries_) return 0;
    const std::uint32_t id = put(entry->info().name());
    added_.emplace(id, entry);
    return id;
}

std::uint32_t RecordingScheduler::put(const std::string& name) {
    names_.emplace(nextId_, name);
    return nextId_++;
}

}  // namespace support
