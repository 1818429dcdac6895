#include "services/scheduler.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <utility>

namespace overseer {
namespace {

using nv::scheduler::daily_repeat_x_days_entry;
using nv::scheduler::schedule_entry;

local_time::DailyRule ruleOf(const StoredScheduleEntry& stored) {
    return {stored.start, stored.end, stored.intervalDays};
}

UtcMilliseconds toMilliseconds(std::time_t seconds) {
    return static_cast<UtcMilliseconds>(seconds) * 1000;
}

/// Whether the entry has times at all.
bool isUsable(const daily_repeat_x_days_entry& entry) {
    return entry.intervalDays() > 0 && !entry.start().is_special() && !entry.end().is_special();
}

}  // namespace

Scheduler::Scheduler(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}

Scheduler::~Scheduler() = default;

Result<> Scheduler::start() {
    const Result<std::vector<StoredScheduleEntry>> stored = surroundings_.store.all();
    if (!stored) return inContext("cannot read the schedule", stored.error());
    for (const StoredScheduleEntry& entry : *stored) entries_[entry.id].stored = entry;
    lastWall_ = surroundings_.clock->wallTime();
    lastSteady_ = surroundings_.clock->steadyTime();
    running_ = true;
    planAll(true);
    arm();
    return {};
}

void Scheduler::stop() {
    running_ = false;
    wait_.reset();
    pending_.clear();
}

std::uint32_t Scheduler::FindEventId(const std::string& name) const {
    for (const auto& [id, entry] : entries_)
        if (entry.stored.name == name) return id;
    return 0;
}

bool Scheduler::RenameEvent(std::uint32_t eventId, const std::string& name) {
    const auto found = entries_.find(eventId);
    if (found == entries_.end()) return false;
    StoredScheduleEntry renamed = found->second.stored;
    renamed.name = name;
    if (auto stored = surroundings_.store.update(renamed); !stored) {
        LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(), "scheduler: " << stored.error().message);
        return false;
    }
    found->second.stored = std::move(renamed);
    return true;
}

std::uint32_t Scheduler::AddEntry(const boost::shared_ptr<schedule_entry>& entry) {
    const auto* daily = dynamic_cast<const daily_repeat_x_days_entry*>(entry.get());
    if (daily == nullptr || !isUsable(*daily)) return 0;
    Entry added;
    added.stored.name = daily->info().name();
    added.stored.deviceId = daily->info().deviceId();
    added.stored.description = daily->info().description();
    added.stored.enabled = daily->attributes().enabled;
    added.stored.hidden = daily->attributes().hidden;
    added.stored.intervalDays = daily->intervalDays();
    added.stored.start = daily->start();
    added.stored.end = daily->end();
    const Result<std::uint32_t> id = surroundings_.store.add(added.stored);
    if (!id) {
        LOG4CPLUS_ERROR(log4cplus::Logger::getRoot(), "scheduler: " << id.error().message);
        return 0;
    }
    added.stored.id = *id;
    plan(added, surroundings_.clock->wallTime().tv_sec);
    entries_[*id] = std::move(added);
    if (running_) arm();
    return *id;
}

RESULTX Scheduler::addListener(std::uint32_t deviceId, std::uint32_t eventId) {
    const auto found = entries_.find(eventId);
    if (found == entries_.end()) return -1;
    found->second.listeners.insert(deviceId);
    return 0;
}

void Scheduler::removeListeners(std::uint32_t deviceId) {
    for (auto& [id, entry] : entries_) entry.listeners.erase(deviceId);
    std::erase_if(pending_, [&](const Pending& held) { return held.deviceId == deviceId; });
    lastDeliveries_.erase(deviceId);
}

Result<std::size_t> Scheduler::fire(std::uint32_t eventId) {
    const auto found = entries_.find(eventId);
    if (found == entries_.end()) return failure("the schedule has no entry {}", eventId);
    // A copy: a delivery may change the schedule.
    const std::set<std::uint32_t> listeners = found->second.listeners;
    if (listeners.empty())
        return failure("nobody listens to the schedule entry {} \"{}\"", eventId,
                       found->second.stored.name);
    noteDelivery(found->second);
    for (const std::uint32_t deviceId : listeners) surroundings_.deliver(deviceId, eventId);
    return listeners.size();
}

std::vector<ScheduleListing> Scheduler::list() const {
    std::vector<ScheduleListing> listing;
    for (const auto& [id, entry] : entries_) {
        const StoredScheduleEntry& stored = entry.stored;
        if (stored.hidden) continue;
        ScheduleListing line;
        line.id = id;
        line.name = stored.name;
        line.deviceId = stored.deviceId;
        line.enabled = stored.enabled;
        line.intervalDays = stored.intervalDays;
        line.listeners.assign(entry.listeners.begin(), entry.listeners.end());
        if (entry.next) line.next = toMilliseconds(entry.next->instant);
        if (stored.lastDelivery != 0) line.lastDelivery = stored.lastDelivery;
        listing.push_back(std::move(line));
    }
    return listing;
}

void Scheduler::planAll(bool dueOnesToo) {
    const std::time_t now = surroundings_.clock->wallTime().tv_sec;
    for (auto& [id, entry] : entries_)
        if (dueOnesToo || !entry.next || entry.next->instant > now) plan(entry, now);
}

void Scheduler::plan(Entry& entry, std::time_t after) {
    entry.next.reset();
    if (!entry.stored.enabled) return;
    // A clock that was once far ahead must not silence the entry until that day.
    boost::gregorian::date& last = entry.stored.lastOccurrence;
    if (!last.is_special() &&
        last > local_time::fromUtc(after).date() + boost::gregorian::days(kForgottenFutureDays))
        last = {};
    entry.next = local_time::nextOccurrence(ruleOf(entry.stored), after, last);
}

}  // namespace overseer
