#pragma once

#include <nv/scheduler.h>

#include <map>
#include <string>

#include "journal.h"

namespace support {

/// A schedule in memory. Journal: "find event NAME", "rename event ID NAME", "add event NAME".
class RecordingScheduler : public nv::scheduler::IScheduler {
  public:
    static constexpr std::uint32_t kId = 77;
    using Entry = boost::shared_ptr<nv::scheduler::schedule_entry>;

    explicit RecordingScheduler(Journal& journal) : journal_(journal) {}

    std::uint32_t GetId() const override { return kId; }
    std::uint32_t FindEventId(const std::string& name) const override;
    bool RenameEvent(std::uint32_t eventId, const std::string& name) override;
    std::uint32_t AddEntry(const Entry& entry) override;

    /// Puts an event in place as if it had been made before; its id.
    std::uint32_t put(const std::string& name);
    void remove(std::uint32_t eventId) { names_.erase(eventId); }
    void refuseEntries(bool refuse) { refuseEntries_ = refuse; }
    /// Renaming throws from now on.
    void failRenames() { failRenames_ = true; }
    const std::map<std::uint32_t, std::string>& names() const { return names_; }
    const std::map<std::uint32_t, Entry>& added() const { return added_; }

  private:
    Journal& journal_;
    std::map<std::uint32_t, std::string> names_;
    std::map<std::uint32_t, Entry> added_;
    std::uint32_t nextId_ = 1;
    bool refuseEntries_ = false;
    bool failRenames_ = false;
};

}  // namespace support
